#include "automation/ObjectText.h"

#include <QtCore/QHash>
#include <QtCore/QMetaProperty>
#include <QtCore/QVariant>
#include <QtCore/QVector>
#include <QtGui/QAbstractButton>
#include <QtGui/QAction>
#include <QtGui/QComboBox>
#include <QtGui/QGroupBox>
#include <QtGui/QLabel>
#include <QtGui/QMenu>

namespace kwauto {

QString Quoted(const QString& text) {
  QString out;
  out.reserve(text.size() + 2);
  out += '"';
  for (const QChar c : text) {
    switch (c.unicode()) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c.unicode() < 0x20)
          out += QString("\\u%1").arg(c.unicode(), 4, 16, QChar('0'));
        else
          out += c;
    }
  }
  out += '"';
  return out;
}

QString Shortened(const QString& text) {
  if (text.size() <= kShortTextLength) return text;
  return text.left(kShortTextLength) + QString::fromUtf8("\u2026(%1 chars)").arg(text.size());
}

QString QuotedShort(const QString& text) { return Quoted(Shortened(text)); }

namespace {

const char* const kTextProperties[] = {"text", "windowTitle", "title", "plainText"};
constexpr int kTextPropertyCount = sizeof kTextProperties / sizeof kTextProperties[0];

// The object's property kTextProperties[which]. Looking a name up in a
// meta object compares it with each of its hundred or so properties, for
// each object of a page source: the places are looked up once per class.
QVariant TextProperty(const QObject* object, int which) {
  static QHash<const QMetaObject*, QVector<int>> places;  // the GUI thread's alone
  const QMetaObject* meta = object->metaObject();
  auto found = places.find(meta);
  if (found == places.end()) {
    QVector<int> indexes;
    for (const char* name : kTextProperties) indexes << meta->indexOfProperty(name);
    found = places.insert(meta, indexes);
  }
  const char* name = kTextProperties[which];
  const int index = found.value()[which];
  // (A meta object made anew at a freed one's address has other places.)
  if (index >= 0 && qstrcmp(meta->property(index).name(), name) == 0) return meta->property(index).read(object);
  if (index >= 0) return object->property(name);
  return object->dynamicPropertyNames().contains(name) ? object->property(name) : QVariant();
}

}  // namespace

QString ReadableText(const QObject* object, QString* property) {
  for (int which = 0; which < kTextPropertyCount; ++which) {
    const QVariant value = TextProperty(object, which);
    if (value.type() == QVariant::String && !value.toString().isEmpty()) {
      if (property != nullptr) *property = kTextProperties[which];
      return value.toString();
    }
  }
  return QString();
}

QString WithoutMnemonics(const QString& text) {
  QString out;
  out.reserve(text.size());
  for (int i = 0; i < text.size(); ++i) {
    if (text[i] == '&' && i + 1 < text.size()) ++i;  // "&&" keeps one
    out += text[i];
  }
  return out;
}

QString VisibleText(const QObject* object) {
  if (const auto* combo = qobject_cast<const QComboBox*>(object)) return combo->currentText();
  QString text = ReadableText(object);
  if (qobject_cast<const QAction*>(object) != nullptr) {
    const int tab = text.indexOf('\t');
    if (tab >= 0) text.truncate(tab);
    return WithoutMnemonics(text);
  }
  const QLabel* label = qobject_cast<const QLabel*>(object);
  if (qobject_cast<const QAbstractButton*>(object) != nullptr || qobject_cast<const QGroupBox*>(object) != nullptr ||
      qobject_cast<const QMenu*>(object) != nullptr || (label != nullptr && label->buddy() != nullptr))
    return WithoutMnemonics(text);
  return text;
}

QString ObjectDescription(const QObject* object) {
  QString out = object->metaObject()->className();
  if (!object->objectName().isEmpty()) out += " " + Quoted(object->objectName());
  const QString text = ReadableText(object);
  if (!text.isEmpty()) out += " " + QuotedShort(text);
  return out;
}

}  // namespace kwauto
