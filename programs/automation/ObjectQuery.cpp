#include "automation/ObjectQuery.h"

#include <QtCore/QSet>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtGui/QApplication>
#include <QtGui/QWidget>

#include "automation/ObjectText.h"

namespace kwauto {

namespace {

struct Step {
  bool childOnly = false;  // ">" before it
  QString type;            // empty: any class
  QStringList classes;     // ".Cls" parts: classes it inherits besides
  QString name;
  bool hasName = false;
  QList<QPair<QString, QString>> properties;
  bool visibleOnly = false;
  int index = -1;  // ":N"
};

// Reads a selector; on a mistake records the first one and stops.
class SelectorParser {
 public:
  SelectorParser(const QString& text, SelectorError* error) : m_text(text), m_error(error) {}

  bool Parse(QList<Step>* steps) {
    SkipBlanks();
    if (AtEnd())
      return Fail("a step (a class, *, #name, .Class, [property=\"text\"] or :visible); the selector is empty");
    while (!AtEnd()) {
      Step step;
      if (!steps->isEmpty()) {
        const bool blanks = SkipBlanks();
        if (AtEnd()) break;
        if (Peek() == '>') {
          step.childOnly = true;
          ++m_at;
          SkipBlanks();
        } else if (!blanks) {
          return Fail("a blank or \">\" between steps");
        }
      }
      if (!ParseStep(&step)) return false;
      steps->append(step);
    }
    return true;
  }

 private:
  bool AtEnd() const { return m_at >= m_text.size(); }
  QChar Peek() const { return AtEnd() ? QChar() : m_text[m_at]; }
  bool SkipBlanks() {
    const int start = m_at;
    while (!AtEnd() && Peek().isSpace()) ++m_at;
    return m_at > start;
  }
  bool Fail(const QString& expected) {
    m_error->position = m_at + 1;
    m_error->message = QString("selector \"%1\", character %2: expected %3").arg(m_text).arg(m_at + 1).arg(expected);
    return false;
  }
  // A class name (letters, digits, "_" and "::") or, with
  // `nameCharacters`, an object name (letters, digits, "_", "-" and ".").
  // A backslash takes the next character as it is, or reads up to 6 hex
  // digits and one blank after them as a character code (CSS's escapes, as
  // WebDriver clients write them).
  QString Word(bool nameCharacters) {
    QString word;
    while (!AtEnd()) {
      const QChar c = Peek();
      if (c == '\\' && m_at + 1 < m_text.size()) {
        ++m_at;
        word.append(Escaped());
      } else if (c.isLetterOrNumber() || c == '_' || (nameCharacters && (c == '-' || c == '.'))) {
        word.append(c);
        ++m_at;
      } else if (!nameCharacters && c == ':' && m_text.mid(m_at, 2) == "::") {
        word.append("::");
        m_at += 2;
      } else {
        break;
      }
    }
    return word;
  }

  // After a backslash: the character it stands for.
  QString Escaped() {
    const auto hex = [this](int at) { return at < m_text.size() && QString("0123456789abcdefABCDEF").contains(m_text[at]); };
    int digits = 0;
    while (digits < 6 && hex(m_at + digits)) ++digits;
    if (digits == 0) return QString(m_text[m_at++]);
    const uint code = m_text.mid(m_at, digits).toUInt(nullptr, 16);
    m_at += digits;
    if (!AtEnd() && Peek().isSpace()) ++m_at;
    return QString::fromUcs4(&code, 1);
  }

  bool ParseStep(Step* step) {
    const int start = m_at;
    if (Peek() == '*')
      ++m_at;  // any class, as no class at all
    else if (Peek().isLetter() || Peek() == '_' || Peek() == '\\')
      step->type = Word(false);
    for (;;) {
      const QChar c = Peek();
      if (c == '#') {
        ++m_at;
        step->name = Word(true);
        step->hasName = true;
        if (step->name.isEmpty()) return Fail("an object name after \"#\"");
      } else if (c == '.') {
        ++m_at;
        const QString className = Word(false);
        if (className.isEmpty()) return Fail("a class name after \".\"");
        step->classes.append(className);
      } else if (c == '[') {
        ++m_at;
        const QString property = Word(false);
        if (property.isEmpty()) return Fail("a property name after \"[\"");
        if (Peek() != '=') return Fail("\"=\" after the property name");
        ++m_at;
        QString value;
        if (!QuotedText(&value)) return false;
        if (Peek() != ']') return Fail("\"]\" after the quoted value");
        ++m_at;
        step->properties.append(qMakePair(property, value));
      } else if (c == ':') {
        ++m_at;
        const QString word = Word(true);
        bool number = false;
        const int index = word.toInt(&number);
        if (word == "visible") {
          step->visibleOnly = true;
        } else if (number && index >= 0) {
          step->index = index;
        } else {
          m_at -= word.size();
          return Fail("\"visible\" or a number after \":\"");
        }
      } else {
        break;
      }
    }
    if (m_at == start) return Fail("a class name, \"*\", \"#\", \".\", \"[\" or \":\"");
    if (!AtEnd() && !Peek().isSpace() && Peek() != '>')
      return Fail("\"#\", \".\", \"[\", \":\", a blank or \">\"");
    return true;
  }

  // A value in double or single quotes; inside, a backslash takes the
  // next character as it is (\" \' \\).
  bool QuotedText(QString* value) {
    const QChar quote = Peek();
    if (quote != '"' && quote != '\'') return Fail("a value in double (or single) quotes");
    ++m_at;
    while (!AtEnd() && Peek() != quote) {
      if (Peek() == '\\' && m_at + 1 < m_text.size()) ++m_at;
      value->append(Peek());
      ++m_at;
    }
    if (AtEnd()) return Fail(quote == '"' ? "the closing double quote" : "the closing single quote");
    ++m_at;
    return true;
  }

  const QString& m_text;
  SelectorError* m_error;
  int m_at = 0;
};

// What [key="..."] compares: "id" the object name, "name" the accessible
// name or, without one, the text a person reads on it, any other key the
// Qt property of that name as text; false when the object has no such property.
bool AttributeText(QObject* object, const QString& key, QString* text) {
  if (key == "id") {
    *text = object->objectName();
    return true;
  }
  if (key == "name") {
    *text = object->property("accessibleName").toString();
    if (text->isEmpty()) *text = ReadableText(object);
    return true;
  }
  const QVariant value = object->property(key.toLatin1().constData());
  *text = value.toString();
  return value.isValid();
}

bool Matches(QObject* object, const Step& step) {
  if (!step.type.isEmpty() && !object->inherits(step.type.toLatin1().constData())) return false;
  foreach (const QString& className, step.classes)
    if (!object->inherits(className.toLatin1().constData())) return false;
  if (step.hasName && object->objectName() != step.name) return false;
  if (step.visibleOnly && !(object->isWidgetType() && static_cast<QWidget*>(object)->isVisible())) return false;
  QString text;
  for (const auto& property : step.properties)
    if (!AttributeText(object, property.first, &text) || text != property.second) return false;
  return true;
}

// Appends the descendants of `object` in document order (depth first),
// without recursion: a chain of nested menus may be thousands deep.
void AddDescendants(QObject* object, QList<QObject*>* out) {
  QList<QPair<QObject*, int>> path;  // each object and the index of its next child
  path.append(qMakePair(object, 0));
  while (!path.isEmpty()) {
    QPair<QObject*, int>& top = path.last();
    const QObjectList& children = top.first->children();
    if (top.second >= children.size()) {
      path.removeLast();
      continue;
    }
    QObject* child = children[top.second++];
    out->append(child);
    path.append(qMakePair(child, 0));
  }
}

// The objects a step looks at below `context` (null: the application).
// From the application, a descendant step starts at the windows that have
// no parent: every other window (a popup menu of a menu bar) is reached as
// one of their descendants, once.
QList<QObject*> Candidates(QObject* context, bool childOnly) {
  QList<QObject*> out;
  if (context == nullptr) {
    foreach (QWidget* top, QApplication::topLevelWidgets()) {
      if (childOnly) {
        out.append(top);
      } else if (top->parent() == nullptr) {
        out.append(top);
        AddDescendants(top, &out);
      }
    }
  } else if (childOnly) {
    out = context->children();
  } else {
    AddDescendants(context, &out);
  }
  return out;
}

}  // namespace

QList<QObject*> QueryObjects(const QString& selector, SelectorError* error) {
  return QueryObjects(selector, error, nullptr);
}

QList<QObject*> ObjectsBelow(QObject* root) { return Candidates(root, false); }

QList<QObject*> QueryObjects(const QString& selector, SelectorError* error, QObject* root) {
  QList<Step> steps;
  SelectorParser parser(selector, error);
  if (!parser.Parse(&steps)) return QList<QObject*>();
  QList<QObject*> contexts;
  contexts.append(root);
  foreach (const Step& step, steps) {
    QList<QObject*> matches;
    QSet<QObject*> seen;
    foreach (QObject* context, contexts) {
      // A context below an earlier one had its descendants looked at with
      // that one's: each object is visited once.
      if (!step.childOnly && context != nullptr && seen.contains(context)) continue;
      foreach (QObject* candidate, Candidates(context, step.childOnly)) {
        if (seen.contains(candidate)) continue;
        seen.insert(candidate);
        if (Matches(candidate, step)) matches.append(candidate);
      }
    }
    if (step.index >= 0) matches = step.index < matches.size() ? matches.mid(step.index, 1) : QList<QObject*>();
    contexts = matches;
  }
  return contexts;
}

}  // namespace kwauto
