// Texts between Qt and the protocol's UTF-8 (NULs included), for the
// sides of the protocol that run with Qt: the agent and kwscript. The kit
// itself is Qt-free, so that kwdriver needs no Qt library.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <string>

namespace kwagentkit {

inline std::string Utf8(const QString& text) {
  const QByteArray bytes = text.toUtf8();
  return std::string(bytes.constData(), static_cast<std::size_t>(bytes.size()));
}

inline QString FromUtf8(const std::string& text) {
  return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

}  // namespace kwagentkit
