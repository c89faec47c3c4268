// The object tree of a window as an XML document, for WebDriver's page
// source and XPath 1.0 queries over it:
//
//   <QMainWindow objectName="main" text="Address Book" visible="true" enabled="true"
//                x="10" y="20" width="640" height="480" windowModality="NonModal" ...>
//     <QTableView ...>
//       <Item row="0" column="0" text="Ada" selected="false"/> ...
//     </QTableView>
//   </QMainWindow>
//
// An element per object, named after its class ("::" as ".", any other
// character an XML name cannot hold as "_"), with the attributes objectName,
// text (what a user reads on it, VisibleText), visible, enabled and the
// object's rectangle on the screen x, y, width and height (widgets; an
// action its visible and enabled alone), then the object's other Qt
// properties that have a plain value: strings (not empty), numbers, bools
// and enumerations (by name, flags joined by "|"; a text edit's html left
// out: its text is there already). An item view's items
// come first among its children: an Item element per cell, row by row,
// with row, column, text and selected; in a tree the rows under a row are
// children of its first cell's Item. At most `maxItems` rows a view.
//
// Each element maps back to the object or item it was made of; XPath is
// pugixml's.
#pragma once

#include <QtCore/QList>
#include <QtCore/QMetaProperty>
#include <QtCore/QVariant>
#include <QtCore/QPair>
#include <QtCore/QPersistentModelIndex>
#include <QtCore/QPointer>
#include <QtCore/QSet>
#include <QtCore/QString>

#include <pugixml.hpp>

#include <unordered_map>
#include <vector>

#include "automation/ItemViews.h"
#include "automation/ObjectQuery.h"

class QAbstractItemView;
class QObject;

namespace kwauto {

using Attributes = QList<QPair<QString, QString>>;

// A property's value when it is plain: a bool, a number, a string, or an
// enumeration's value as its name (flags as names joined by "|"); an
// invalid QVariant otherwise.
QVariant PlainValue(const QObject* object, const QMetaProperty& property);

// The names of the attributes an XPath 1.0 expression may read (through
// "@name" or "attribute::name"), some more at worst: false when it may read
// any (a wildcard such as "@*"), and `names` is then of no use.
bool XPathAttributeNames(const QString& xpath, QSet<QString>* names);

// The attributes of an object's or an item's element, in document order;
// with `wanted`, only those it names (the others are not even read).
Attributes ObjectAttributes(const QObject* object, const QSet<QString>* wanted = nullptr);
Attributes ItemAttributes(const QAbstractItemView* view, const QModelIndex& index);

// A class name as an XML element name.
QString XmlName(const QString& className);

// What an element stands for: an object, or an item (its view and index).
struct SourceTarget {
  QPointer<QObject> object;  // for an item, its view
  QPersistentModelIndex index;
  bool item = false;
};

class PageSource {
 public:
  explicit PageSource(int maxItems) : m_maxItems(maxItems) {}
  PageSource(const PageSource&) = delete;
  PageSource& operator=(const PageSource&) = delete;

  // Makes `root` and everything below it the document; with `wanted`, the
  // objects' elements carry only the attributes it names (an XPath query
  // that reads no others selects the same).
  void Build(QObject* root, const QSet<QString>* wanted = nullptr);

  const pugi::xml_document& Document() const { return m_document; }
  // The document as text, indented, with an XML declaration.
  QString Xml() const;

  // The object or item of an element of the document; null for another node.
  const SourceTarget* TargetOf(const pugi::xml_node& node) const;
  // The element of an object, or of an item (view and index); empty when
  // the document has none.
  pugi::xml_node NodeOf(const QObject* object) const;
  pugi::xml_node NodeOf(const QAbstractItemView* view, const QModelIndex& index) const;

  // The objects and items an XPath 1.0 expression selects, evaluated at
  // `context` (the document when empty), in document order. An expression
  // that does not parse, or whose result is not a set of elements, fails:
  // false and `error` says where and what.
  bool Select(const QString& xpath, const pugi::xml_node& context, QList<SourceTarget>* out,
              SelectorError* error) const;

 private:
  void AddObject(pugi::xml_node parent, QObject* object);
  void AddRows(pugi::xml_node parent, const QAbstractItemView* view, const QList<ListedRow>& rows);
  pugi::xml_node AddElement(pugi::xml_node parent, const QString& name, const Attributes& attributes,
                            const SourceTarget& target);

  int m_maxItems;
  const QSet<QString>* m_wanted = nullptr;  // while Build runs
  pugi::xml_document m_document;
  std::vector<SourceTarget> m_targets;
  std::vector<pugi::xml_node> m_nodes;  // the element of each target
  std::unordered_map<const void*, size_t> m_targetOfNode;   // xml_node_struct* -> m_targets
  std::unordered_map<const void*, pugi::xml_node> m_nodeOfObject;
};

}  // namespace kwauto
