#include "automation/PageSource.h"

#include <QtCore/QMetaEnum>
#include <QtCore/QMetaObject>
#include <QtCore/QRegExp>
#include <QtCore/QSet>
#include <QtCore/QStringList>
#include <QtGui/QAbstractItemView>
#include <QtGui/QAction>
#include <QtGui/QWidget>

#include <sstream>

#include "automation/ObjectText.h"

namespace kwauto {

namespace {

const char* Bool(bool value) { return value ? "true" : "false"; }

QString Text(const QVariant& value) {
  if (value.type() == QVariant::Bool) return Bool(value.toBool());
  return value.toString();
}

bool PlainName(const QString& name) {
  if (name.isEmpty() || name.startsWith("_q_") || !(name[0].isLetter() || name[0] == '_')) return false;
  foreach (const QChar c, name)
    if (!(c.isLetterOrNumber() || c == '_' || c == '-' || c == '.')) return false;
  return true;
}

pugi::string_t Utf8(const QString& text) { return pugi::string_t(text.toUtf8().constData()); }

}  // namespace

QVariant PlainValue(const QObject* object, const QMetaProperty& property) {
  if (!property.isReadable()) return QVariant();
  const QVariant value = property.read(object);
  if (property.isEnumType()) {
    const QMetaEnum enumeration = property.enumerator();
    const int number = value.toInt();
    const QByteArray name = enumeration.isFlag() ? enumeration.valueToKeys(number) : QByteArray(enumeration.valueToKey(number));
    return name.isEmpty() ? QVariant(number) : QVariant(QString::fromLatin1(name));
  }
  switch (value.type()) {
    case QVariant::Bool:
    case QVariant::Int:
    case QVariant::UInt:
    case QVariant::LongLong:
    case QVariant::ULongLong:
    case QVariant::Double:
    case QVariant::String:
      return value;
    case QVariant::Char:
      return QVariant(QString(value.toChar()));
    default:
      return QVariant();
  }
}

bool XPathAttributeNames(const QString& xpath, QSet<QString>* names) {
  // A name after "@" or "attribute::"; anything else there (a wildcard,
  // node()) may stand for any attribute. Strings are not told apart: a name
  // in one only makes the set larger.
  QRegExp axis("(@|\\battribute\\s*::)\\s*");
  QRegExp name("[A-Za-z_][A-Za-z0-9_.-]*");
  for (int at = axis.indexIn(xpath); at >= 0; at = axis.indexIn(xpath, at + axis.matchedLength())) {
    const int start = at + axis.matchedLength();
    if (name.indexIn(xpath, start) != start) return false;
    const int end = start + name.matchedLength();
    if (end < xpath.size() && (xpath[end] == ':' || xpath[end] == '(')) return false;  // a prefix, node()
    names->insert(name.cap(0));
  }
  return true;
}

Attributes ObjectAttributes(const QObject* object, const QSet<QString>* wanted) {
  const auto want = [wanted](const char* name) { return wanted == nullptr || wanted->contains(QLatin1String(name)); };
  Attributes out;
  if (want("objectName")) out << qMakePair(QString("objectName"), object->objectName());
  const QString text = want("text") ? VisibleText(object) : QString();
  if (!text.isEmpty()) out << qMakePair(QString("text"), text);
  if (object->isWidgetType()) {
    const auto* widget = static_cast<const QWidget*>(object);
    if (want("visible")) out << qMakePair(QString("visible"), QString(Bool(widget->isVisible())));
    if (want("enabled")) out << qMakePair(QString("enabled"), QString(Bool(widget->isEnabled())));
    if (want("x") || want("y")) {
      const QPoint at = widget->mapToGlobal(QPoint(0, 0));
      out << qMakePair(QString("x"), QString::number(at.x())) << qMakePair(QString("y"), QString::number(at.y()));
    }
    if (want("width")) out << qMakePair(QString("width"), QString::number(widget->width()));
    if (want("height")) out << qMakePair(QString("height"), QString::number(widget->height()));
  } else if (const auto* action = qobject_cast<const QAction*>(object)) {
    if (want("visible")) out << qMakePair(QString("visible"), QString(Bool(action->isVisible())));
    if (want("enabled")) out << qMakePair(QString("enabled"), QString(Bool(action->isEnabled())));
  }
  // The names above are the element's own, wanted or not: no property of
  // the same name stands in for them (a raw "text" would contradict what a
  // user reads; "html" is a text edit's document once more, as markup made
  // anew at each read).
  static const QSet<QString> kObjectOwn = QSet<QString>() << "objectName" << "text" << "html";
  static const QSet<QString> kActionOwn = QSet<QString>(kObjectOwn) << "visible" << "enabled";
  static const QSet<QString> kWidgetOwn = QSet<QString>(kActionOwn) << "x" << "y" << "width" << "height";
  QSet<QString> taken = object->isWidgetType()                             ? kWidgetOwn
                        : qobject_cast<const QAction*>(object) != nullptr ? kActionOwn
                                                                          : kObjectOwn;
  // A widget has a hundred properties or so: with names wanted, only those
  // that may be properties are looked for, and none when there are none.
  QList<QByteArray> wantedProperties;
  if (wanted != nullptr) {
    foreach (const QString& name, *wanted)
      if (!taken.contains(name) && PlainName(name)) wantedProperties << name.toLatin1();
    if (wantedProperties.isEmpty()) return out;
  }
  const QMetaObject* meta = object->metaObject();
  for (int i = 0; i < meta->propertyCount(); ++i) {
    const QMetaProperty property = meta->property(i);
    if (wanted != nullptr && !wantedProperties.contains(QByteArray::fromRawData(property.name(), qstrlen(property.name()))))
      continue;
    const QString name = property.name();
    if (taken.contains(name) || !PlainName(name)) continue;
    const QVariant value = PlainValue(object, property);
    if (!value.isValid() || (value.type() == QVariant::String && value.toString().isEmpty())) continue;
    out << qMakePair(name, Text(value));
    taken.insert(name);
  }
  foreach (const QByteArray& dynamic, object->dynamicPropertyNames()) {
    if (wanted != nullptr && !wantedProperties.contains(dynamic)) continue;
    const QString name = QString::fromLatin1(dynamic);
    if (taken.contains(name) || !PlainName(name)) continue;
    const QVariant value = object->property(dynamic.constData());
    if (value.type() == QVariant::Bool || value.type() == QVariant::String || value.canConvert(QVariant::Double)) {
      if (value.toString().isEmpty() && value.type() != QVariant::Bool) continue;
      out << qMakePair(name, Text(value));
      taken.insert(name);
    }
  }
  return out;
}

Attributes ItemAttributes(const QAbstractItemView* view, const QModelIndex& index) {
  Attributes out;
  out << qMakePair(QString("row"), QString::number(index.row()))
      << qMakePair(QString("column"), QString::number(index.column()))
      << qMakePair(QString("text"), ItemText(index))
      << qMakePair(QString("selected"), QString(Bool(ItemSelected(view, index))));
  return out;
}

QString XmlName(const QString& className) {
  QString name = className;
  name.replace("::", ".");
  for (int i = 0; i < name.size(); ++i) {
    const QChar c = name[i];
    const bool ok = c.isLetter() || c == '_' || (i > 0 && (c.isDigit() || c == '-' || c == '.'));
    if (!ok) name[i] = '_';
  }
  return name.isEmpty() ? QString("_") : name;
}

void PageSource::Build(QObject* root, const QSet<QString>* wanted) {
  m_wanted = wanted;
  m_document.reset();
  m_targets.clear();
  m_nodes.clear();
  m_targetOfNode.clear();
  m_nodeOfObject.clear();
  AddObject(m_document, root);
  m_wanted = nullptr;
}

pugi::xml_node PageSource::AddElement(pugi::xml_node parent, const QString& name, const Attributes& attributes,
                                      const SourceTarget& target) {
  pugi::xml_node node = parent.append_child(Utf8(name).c_str());
  foreach (const auto& attribute, attributes)
    node.append_attribute(Utf8(attribute.first).c_str()).set_value(Utf8(attribute.second).c_str());
  m_targetOfNode[node.internal_object()] = m_targets.size();
  m_targets.push_back(target);
  m_nodes.push_back(node);
  return node;
}

// Depth first with a stack of its own: a chain of nested menus may be
// thousands deep.
void PageSource::AddObject(pugi::xml_node parent, QObject* root) {
  QList<QPair<QObject*, pugi::xml_node>> pending;
  pending.append(qMakePair(root, parent));
  while (!pending.isEmpty()) {
    const QPair<QObject*, pugi::xml_node> next = pending.takeLast();
    QObject* object = next.first;
    SourceTarget target;
    target.object = object;
    pugi::xml_node node =
        AddElement(next.second, XmlName(object->metaObject()->className()), ObjectAttributes(object, m_wanted), target);
    m_nodeOfObject[object] = node;
    if (const QAbstractItemView* view = ItemViewOf(object)) AddRows(node, view, ListRows(view, m_maxItems));
    const QObjectList& children = object->children();
    for (int i = children.size() - 1; i >= 0; --i) pending.append(qMakePair(children[i], node));
  }
}

void PageSource::AddRows(pugi::xml_node parent, const QAbstractItemView* view, const QList<ListedRow>& rows) {
  foreach (const ListedRow& row, rows) {
    pugi::xml_node first;
    foreach (const QModelIndex& cell, row.cells) {
      SourceTarget target;
      target.object = const_cast<QAbstractItemView*>(view);
      target.index = cell;
      target.item = true;
      const pugi::xml_node node = AddElement(parent, "Item", ItemAttributes(view, cell), target);
      if (!first) first = node;
    }
    if (first) AddRows(first, view, row.children);
  }
}

QString PageSource::Xml() const {
  std::ostringstream out;
  m_document.save(out, "  ", pugi::format_indent, pugi::encoding_utf8);
  return QString::fromUtf8(out.str().c_str());
}

const SourceTarget* PageSource::TargetOf(const pugi::xml_node& node) const {
  auto found = m_targetOfNode.find(node.internal_object());
  return found == m_targetOfNode.end() ? nullptr : &m_targets[found->second];
}

pugi::xml_node PageSource::NodeOf(const QObject* object) const {
  auto found = m_nodeOfObject.find(object);
  return found == m_nodeOfObject.end() ? pugi::xml_node() : found->second;
}

pugi::xml_node PageSource::NodeOf(const QAbstractItemView* view, const QModelIndex& index) const {
  for (size_t i = 0; i < m_targets.size(); ++i)
    if (m_targets[i].item && m_targets[i].object == view && m_targets[i].index == index) return m_nodes[i];
  return pugi::xml_node();
}

bool PageSource::Select(const QString& xpath, const pugi::xml_node& context, QList<SourceTarget>* out,
                        SelectorError* error) const {
  const QByteArray expression = xpath.toUtf8();
  try {
    pugi::xpath_query query(expression.constData());
    if (query.return_type() != pugi::xpath_type_node_set) {
      error->position = 1;
      error->message = QString("xpath \"%1\" gives a %2, not elements")
                           .arg(xpath, query.return_type() == pugi::xpath_type_string   ? "string"
                                       : query.return_type() == pugi::xpath_type_number ? "number"
                                                                                         : "boolean");
      return false;
    }
    pugi::xpath_node_set nodes = query.evaluate_node_set(context ? context : pugi::xml_node(m_document));
    nodes.sort();
    for (const pugi::xpath_node& found : nodes) {
      const SourceTarget* target = found.attribute() ? nullptr : TargetOf(found.node());
      if (target == nullptr) {
        error->position = 1;
        error->message = QString("xpath \"%1\" selects %2, not only elements")
                             .arg(xpath, found.attribute() ? "an attribute" : "a node that is not an element");
        return false;
      }
      out->append(*target);
    }
    return true;
  } catch (const pugi::xpath_exception& failure) {
    const int offset = static_cast<int>(failure.result().offset);
    error->position = QString::fromUtf8(expression.left(offset)).size() + 1;
    error->message = QString("xpath \"%1\", character %2: %3").arg(xpath).arg(error->position).arg(failure.what());
    return false;
  }
}

}  // namespace kwauto
