// GoogleTest's printing of Qt's strings and string lists, so a failure
// shows the texts.
#pragma once

#include <QtCore/QStringList>

#include <ostream>

inline void PrintTo(const QString& text, std::ostream* out) { *out << '"' << text.toUtf8().constData() << '"'; }
inline void PrintTo(const QStringList& texts, std::ostream* out) {
  *out << "[" << texts.join(", ").toUtf8().constData() << "]";
}
