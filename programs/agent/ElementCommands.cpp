// Finding elements and what a driver does with them.
//
// Where finding looks: every object under the application's top-level
// windows (those without a parent, each with what lies below it, menus and
// dialogs that have a parent included), in the order of the object tree,
// whichever window is current: a dialog is a window of its own, and a test
// that opened one expects to find its buttons without switching to it.
// From an element, the search covers what lies below it. Items of item
// views (up to the session's maxItems rows a view) come right after their
// view.
//
//   css selector       kwauto::QueryObjects' selectors ("QPushButton#ok",
//                      "QDialog > QLineEdit:visible"); objects only
//   xpath              XPath 1.0 over each window's page source (PageSource),
//                      absolute paths as getPageSource shows them, the
//                      windows' results one after the other (so "(//X)[1]"
//                      is the first in each window); only elements may be
//                      selected
//   id, accessibility id   the object name
//   class name         a class the object inherits (QObject::inherits)
//   tag name           the object's own class, as getElementTagName and the
//                      page source name it ("Item" for items)
//   name               the accessible name, else the text a user reads
//   link text, partial link text   the text a user reads on an object (a
//                      button's, label's or action's, mnemonics left out;
//                      a menu is found as the action that opens it) or an
//                      item, whole or a part of it
//
// A click or keys go to the element as a user's would (kwauto's input
// events); on an element a modal window blocks they fail with `unexpected
// alert open`, on one hidden or disabled with `element not interactable`.
#include <QtCore/QVariant>
#include <QtGui/QAbstractButton>
#include <QtGui/QAbstractItemView>
#include <QtGui/QAbstractSpinBox>
#include <QtGui/QAction>
#include <QtGui/QApplication>
#include <QtGui/QColor>
#include <QtGui/QComboBox>
#include <QtGui/QDesktopWidget>
#include <QtGui/QFontInfo>
#include <QtGui/QLineEdit>
#include <QtGui/QMenu>
#include <QtGui/QMenuBar>
#include <QtGui/QPalette>
#include <QtGui/QPlainTextEdit>
#include <QtGui/QScrollArea>
#include <QtGui/QTextEdit>
#include <QtGui/QToolBar>
#include <QtGui/QWidget>

#include <functional>

#include "agent/ElementSupport.h"
#include "agent/Session.h"
#include "automation/Accessibility.h"
#include "automation/InputEvents.h"
#include "automation/ItemViews.h"
#include "automation/ObjectQuery.h"
#include "automation/ObjectText.h"
#include "automation/PageSource.h"
#include "automation/W3CKeys.h"

namespace kwagent {

void AddWindowCommands(CommandTable& table);

namespace {

// An object or an item met while finding (no reference yet).
struct Found {
  QObject* object = nullptr;  // for an item, its view
  QModelIndex index;
  bool item = false;
};

QAbstractItemView* ViewOf(const Element& element) { return static_cast<QAbstractItemView*>(element.object.data()); }

Json References(const QList<Found>& found, ElementTable& elements) {
  Json out = Json::array();
  foreach (const Found& one, found)
    out.push_back(one.item ? elements.Reference(static_cast<QAbstractItemView*>(one.object), one.index)
                           : elements.Reference(one.object));
  return out;
}

// The topmost ancestor of an object: the root of its window's page source.
QObject* RootOf(QObject* object) {
  while (object->parent() != nullptr) object = object->parent();
  return object;
}

// The items below `index` in its view (the rows under a tree's row, below
// its first cell), in order.
QList<QModelIndex> ItemsBelow(const QList<kwauto::ListedRow>& rows, const QModelIndex& index) {
  foreach (const kwauto::ListedRow& row, rows) {
    if (!row.cells.isEmpty() && row.cells.first() == index) return kwauto::ItemsInOrder(row.children);
    const QList<QModelIndex> below = ItemsBelow(row.children, index);
    if (!below.isEmpty()) return below;
  }
  return QList<QModelIndex>();
}

// Every object (and, with `items`, every item) below the root (null: the
// application), in order.
QList<Found> Candidates(const Element* root, bool items, int maxItems) {
  QList<Found> out;
  auto addItems = [&out](QAbstractItemView* view, const QList<QModelIndex>& indexes) {
    foreach (const QModelIndex& index, indexes) {
      Found item;
      item.object = view;
      item.index = index;
      item.item = true;
      out.append(item);
    }
  };
  if (root != nullptr && root->item) {
    if (!items) return out;
    addItems(ViewOf(*root), ItemsBelow(kwauto::ListRows(ViewOf(*root), maxItems), root->index));
    return out;
  }
  // Below a view come its items, then its child objects (and their items).
  if (root != nullptr && items)
    if (QAbstractItemView* view = kwauto::ItemViewOf(root->object.data()))
      addItems(view, kwauto::ItemsInOrder(kwauto::ListRows(view, maxItems)));
  foreach (QObject* object, kwauto::ObjectsBelow(root != nullptr ? root->object.data() : nullptr)) {
    Found found;
    found.object = object;
    out.append(found);
    if (QAbstractItemView* view = items ? kwauto::ItemViewOf(object) : nullptr)
      addItems(view, kwauto::ItemsInOrder(kwauto::ListRows(view, maxItems)));
  }
  return out;
}

QList<Found> Filtered(const QList<Found>& candidates, const std::function<bool(const Found&)>& matches) {
  QList<Found> out;
  foreach (const Found& candidate, candidates)
    if (matches(candidate)) out.append(candidate);
  return out;
}

QString ShownText(const Found& found) {
  return (found.item ? kwauto::ItemText(found.index) : kwauto::VisibleText(found.object)).trimmed();
}

[[noreturn]] void FailSelector(const kwauto::SelectorError& error) {
  Fail("invalid selector", error.message.isEmpty() ? QString("the selector is not valid") : error.message);
}

QList<Found> FoundObjects(const QList<QObject*>& objects) {
  QList<Found> out;
  foreach (QObject* object, objects) {
    Found found;
    found.object = object;
    out.append(found);
  }
  return out;
}

QList<Found> ByXPath(const QString& xpath, const Element* root, int maxItems) {
  QList<QObject*> documents;
  if (root == nullptr) {
    foreach (QWidget* top, QApplication::topLevelWidgets())
      if (top->parent() == nullptr) documents.append(top);
  } else {
    documents.append(RootOf(root->object.data()));
  }
  // Only the attributes the expression reads are made: reading every
  // property of every object is most of the cost of a document.
  QSet<QString> names;
  const bool some = kwauto::XPathAttributeNames(xpath, &names);
  QList<Found> out;
  foreach (QObject* document, documents) {
    kwauto::PageSource source(maxItems);
    source.Build(document, some ? &names : nullptr);
    pugi::xml_node context;
    if (root != nullptr) {
      context = root->item ? source.NodeOf(ViewOf(*root), root->index) : source.NodeOf(root->object.data());
      if (!context) return out;  // an item beyond the listed rows: nothing below it is listed either
    }
    QList<kwauto::SourceTarget> targets;
    kwauto::SelectorError error;
    if (!source.Select(xpath, context, &targets, &error)) FailSelector(error);
    foreach (const kwauto::SourceTarget& target, targets) {
      Found found;
      found.object = target.object.data();
      found.index = target.index;
      found.item = target.item;
      if (found.object != nullptr) out.append(found);
    }
  }
  return out;
}

QList<Found> Find(const Json& params, const Element* root, int maxItems) {
  const QString strategy = StringParam(params, "using");
  const QString value = StringParam(params, "value");
  if (strategy == "css selector") {
    if (root != nullptr && root->item) return QList<Found>();
    kwauto::SelectorError error;
    const QList<QObject*> objects =
        kwauto::QueryObjects(value, &error, root != nullptr ? root->object.data() : nullptr);
    if (!error.message.isEmpty()) FailSelector(error);
    return FoundObjects(objects);
  }
  if (strategy == "xpath") return ByXPath(value, root, maxItems);
  if (value.isEmpty() && strategy != "link text")
    Fail("invalid selector", QString("an empty value finds nothing by %1").arg(strategy));
  // Items have no object name, class or accessible name: only their tag
  // name and text find them.
  const bool items = strategy == "tag name" || strategy == "link text" || strategy == "partial link text";
  const QList<Found> all = Candidates(root, items, maxItems);
  if (strategy == "id" || strategy == "accessibility id")
    return Filtered(all, [&](const Found& f) { return !f.item && f.object->objectName() == value; });
  if (strategy == "class name") {
    if (value.contains(' ')) Fail("invalid selector", "a class name is one name, without blanks");
    const QByteArray name = value.toLatin1();
    return Filtered(all, [&](const Found& f) { return !f.item && f.object->inherits(name.constData()); });
  }
  if (strategy == "tag name")
    return Filtered(all, [&](const Found& f) {
      if (f.item) return value == "Item";
      const QString className = f.object->metaObject()->className();
      return className == value || kwauto::XmlName(className) == value;
    });
  if (strategy == "name")
    return Filtered(all, [&](const Found& f) {
      if (f.item) return false;
      const QString accessible = f.object->isWidgetType() ? static_cast<QWidget*>(f.object)->accessibleName() : QString();
      return accessible.isEmpty() ? ShownText(f) == value : accessible == value;
    });
  // A menu's title is what its entry in the menu bar (or in the menu above
  // it) shows: that entry, the menu's action, is the element a user clicks.
  auto linkable = [](const Found& f) { return f.item || qobject_cast<QMenu*>(f.object) == nullptr; };
  if (strategy == "link text")
    return Filtered(all, [&](const Found& f) { return linkable(f) && ShownText(f) == value.trimmed(); });
  if (strategy == "partial link text")
    return Filtered(all, [&](const Found& f) { return linkable(f) && ShownText(f).contains(value); });
  Fail("invalid argument", QString("\"%1\" is no locator strategy (css selector, xpath, id, accessibility id, "
                                   "class name, tag name, name, link text, partial link text)")
                               .arg(strategy));
}

QString Described(const Json& params) {
  return QString("%1 \"%2\"").arg(StringParam(params, "using"), StringParam(params, "value"));
}

Json FindElement(const Json& params, SessionState& session) {
  const QList<Found> found = Find(params, nullptr, session.maxItems);
  if (found.isEmpty()) Fail("no such element", "no element matches " + Described(params));
  return References(found.mid(0, 1), session.elements)[0];
}

Json FindElements(const Json& params, SessionState& session) {
  return References(Find(params, nullptr, session.maxItems), session.elements);
}

Json FindElementFromElement(const Json& params, SessionState& session) {
  const Element root = session.elements.Resolve(params);
  const QList<Found> found = Find(params, &root, session.maxItems);
  if (found.isEmpty()) Fail("no such element", "no element below the element matches " + Described(params));
  return References(found.mid(0, 1), session.elements)[0];
}

Json FindElementsFromElement(const Json& params, SessionState& session) {
  const Element root = session.elements.Resolve(params);
  return References(Find(params, &root, session.maxItems), session.elements);
}

Json GetActiveElement(const Json&, SessionState& session) {
  QWidget* focus = QApplication::focusWidget();
  if (focus == nullptr) Fail("no such element", "no widget has the keyboard focus");
  return session.elements.Reference(focus);
}

// --- what an element shows -------------------------------------------------

// Where an action shows: the widget that shows its entry (an open menu
// first, then the menu bar, then a tool bar's button) and the entry's
// rectangle in that widget; null when none shows it.
QWidget* ActionPlace(const QAction* action, QRect* place) {
  auto* entry = const_cast<QAction*>(action);
  for (int pass = 0; pass < 3; ++pass) {
    foreach (QWidget* widget, action->associatedWidgets()) {
      if (!Displayed(widget)) continue;
      QRect found;
      if (auto* menu = qobject_cast<QMenu*>(widget)) {
        if (pass == 0) found = menu->actionGeometry(entry);
      } else if (auto* bar = qobject_cast<QMenuBar*>(widget)) {
        if (pass == 1) found = bar->actionGeometry(entry);
      } else if (auto* tools = qobject_cast<QToolBar*>(widget)) {
        QWidget* button = pass == 2 ? tools->widgetForAction(entry) : nullptr;
        if (button != nullptr && Displayed(button)) {
          *place = button->rect();
          return button;
        }
      }
      if (!found.isEmpty()) {
        *place = found;
        return widget;
      }
    }
  }
  return nullptr;
}

// The same rectangle in screen coordinates; empty when none shows it.
QRect ActionRect(const QAction* action) {
  QRect place;
  QWidget* widget = ActionPlace(action, &place);
  return widget != nullptr ? QRect(widget->mapToGlobal(place.topLeft()), place.size()) : QRect();
}

bool ElementDisplayed(const Element& element) {
  if (element.item) {
    QAbstractItemView* view = ViewOf(element);
    const QRect place = view->visualRect(element.index);
    return Displayed(view) && !place.isEmpty() && place.intersects(view->viewport()->rect());
  }
  if (QWidget* widget = element.Widget()) return Displayed(widget);
  if (auto* action = qobject_cast<QAction*>(element.object.data())) return !ActionRect(action).isEmpty();
  return false;
}

QRect ElementRect(const Element& element) {
  if (element.item) return kwauto::ItemScreenRect(ViewOf(element), element.index);
  if (QWidget* widget = element.Widget()) return QRect(widget->mapToGlobal(QPoint(0, 0)), widget->size());
  if (auto* action = qobject_cast<QAction*>(element.object.data())) return ActionRect(action);
  return QRect();
}

Json JsonOfVariant(const QVariant& value) {
  switch (value.type()) {
    case QVariant::Invalid: return nullptr;
    case QVariant::Bool: return value.toBool();
    case QVariant::Int:
    case QVariant::LongLong: return value.toLongLong();
    case QVariant::UInt:
    case QVariant::ULongLong: return value.toULongLong();
    case QVariant::Double: {
      const double number = value.toDouble();
      return number == number ? Json(number) : Json(nullptr);  // NaN has no JSON form
    }
    case QVariant::StringList: {
      Json out = Json::array();
      foreach (const QString& text, value.toStringList()) out.push_back(JsonOf(text));
      return out;
    }
    case QVariant::Rect: return RectJson(value.toRect());
    case QVariant::Size: return Json{{"width", value.toSize().width()}, {"height", value.toSize().height()}};
    case QVariant::Point: return Json{{"x", value.toPoint().x()}, {"y", value.toPoint().y()}};
    case QVariant::Color: return JsonOf(qvariant_cast<QColor>(value).name());
    default: return value.canConvert(QVariant::String) ? JsonOf(value.toString()) : Json(nullptr);
  }
}

QString NameParam(const Json& params) { return StringParam(params, "name"); }

// What a field holds, for the name "value" of an object that has no such
// property: a browser's input answers its typed text so, and tests read
// fields by it. The text of a text field, text edit, spin box or combo box,
// an item's text; else (or for another name) invalid.
QVariant FieldValue(const Element& element, const QString& name) {
  if (name != "value") return QVariant();
  if (element.item) return kwauto::ItemText(element.index);
  QObject* object = element.object.data();
  if (object->metaObject()->indexOfProperty("value") >= 0) return QVariant();
  if (auto* line = qobject_cast<QLineEdit*>(object)) return line->text();
  if (auto* text = qobject_cast<QTextEdit*>(object)) return text->toPlainText();
  if (auto* plain = qobject_cast<QPlainTextEdit*>(object)) return plain->toPlainText();
  if (auto* spin = qobject_cast<QAbstractSpinBox*>(object)) return spin->text();
  if (auto* combo = qobject_cast<QComboBox*>(object)) return combo->currentText();
  return QVariant();
}

Json GetElementAttribute(const Json& params, SessionState& session) {
  const Element element = session.elements.Resolve(params);
  const QString name = NameParam(params);
  const kwauto::Attributes attributes = element.item ? kwauto::ItemAttributes(ViewOf(element), element.index)
                                                     : kwauto::ObjectAttributes(element.object.data());
  foreach (const auto& attribute, attributes)
    if (attribute.first == name) return JsonOf(attribute.second);
  if (const QVariant held = FieldValue(element, name); held.isValid()) return JsonOf(held.toString());
  if (element.item) return nullptr;
  if (name == "className") return JsonOf(element.object->metaObject()->className());
  // A property the page source leaves out (empty, or of no plain type).
  const QVariant value = element.object->property(name.toLatin1().constData());
  if (!value.isValid()) return nullptr;
  const Json converted = JsonOfVariant(value);
  if (converted.is_boolean()) return converted.get<bool>() ? "true" : "false";
  return converted.is_string() || converted.is_null() ? converted : Json(converted.dump());
}

Json GetElementProperty(const Json& params, SessionState& session) {
  const Element element = session.elements.Resolve(params);
  const QString name = NameParam(params);
  if (const QVariant held = FieldValue(element, name); held.isValid()) return JsonOf(held.toString());
  if (element.item) {
    if (name == "row") return element.index.row();
    if (name == "column") return element.index.column();
    if (name == "text") return JsonOf(kwauto::ItemText(element.index));
    if (name == "selected") return kwauto::ItemSelected(ViewOf(element), element.index);
    return nullptr;
  }
  QObject* object = element.object.data();
  if (name == "className") return JsonOf(object->metaObject()->className());
  const QByteArray key = name.toLatin1();
  const int at = object->metaObject()->indexOfProperty(key.constData());
  if (at >= 0) {
    const QMetaProperty property = object->metaObject()->property(at);
    const QVariant plain = kwauto::PlainValue(object, property);
    return JsonOfVariant(plain.isValid() ? plain : property.read(object));
  }
  return JsonOfVariant(object->property(key.constData()));  // a dynamic property, or none
}

Json GetElementText(const Json& params, SessionState& session) {
  const Element element = session.elements.Resolve(params);
  return JsonOf(element.item ? kwauto::ItemText(element.index) : kwauto::VisibleText(element.object.data()));
}

Json GetComputedLabel(const Json& params, SessionState& session) {
  const Element element = session.elements.Resolve(params);
  return JsonOf(element.item ? kwauto::ItemText(element.index).trimmed() : kwauto::AccessibleLabel(element.object.data()));
}

Json GetComputedRole(const Json& params, SessionState& session) {
  const Element element = session.elements.Resolve(params);
  return JsonOf(element.item ? kwauto::ItemAriaRole(element.object.data()) : kwauto::AriaRole(element.object.data()));
}

Json GetElementTagName(const Json& params, SessionState& session) {
  const Element element = session.elements.Resolve(params);
  return JsonOf(element.item ? QString("Item") : QString(element.object->metaObject()->className()));
}

Json GetElementRect(const Json& params, SessionState& session) {
  return RectJson(ElementRect(session.elements.Resolve(params)));
}

Json IsElementSelected(const Json& params, SessionState& session) {
  const Element element = session.elements.Resolve(params);
  if (element.item) return kwauto::ItemSelected(ViewOf(element), element.index);
  const QVariant checked = element.object->property("checked");
  return checked.type() == QVariant::Bool && checked.toBool();
}

Json IsElementEnabled(const Json& params, SessionState& session) {
  const Element element = session.elements.Resolve(params);
  if (element.item)
    return ViewOf(element)->isEnabled() && (element.index.flags() & Qt::ItemIsEnabled);
  if (QWidget* widget = element.Widget()) return widget->isEnabled();
  if (auto* action = qobject_cast<QAction*>(element.object.data())) return action->isEnabled();
  return false;
}

Json IsElementDisplayed(const Json& params, SessionState& session) {
  return ElementDisplayed(session.elements.Resolve(params));
}

// CSS has no place in a Qt application; the properties a test may still ask
// for are answered from what the widget shows, in CSS's notation, any other
// with "" (as a browser answers a property it does not know).
Json GetElementCssValue(const Json& params, SessionState& session) {
  const Element element = session.elements.Resolve(params);
  const QString name = StringParam(params, "propertyName").toLower();
  QWidget* widget = element.item ? ViewOf(element) : element.Widget();
  if (name == "display") return ElementDisplayed(element) ? "block" : "none";
  if (name == "visibility") return ElementDisplayed(element) ? "visible" : "hidden";
  if (widget == nullptr) return "";
  auto rgba = [](const QColor& c) {
    return JsonOf(QString("rgba(%1, %2, %3, %4)").arg(c.red()).arg(c.green()).arg(c.blue()).arg(c.alphaF()));
  };
  const QRect place = ElementRect(element);
  if (name == "color") return rgba(widget->palette().color(widget->foregroundRole()));
  if (name == "background-color") return rgba(widget->palette().color(widget->backgroundRole()));
  if (name == "font-family") return JsonOf(widget->font().family());
  if (name == "font-size") return JsonOf(QString("%1px").arg(QFontInfo(widget->font()).pixelSize()));
  if (name == "font-weight") return JsonOf(QString::number(widget->font().bold() ? 700 : 400));
  if (name == "font-style") return widget->font().italic() ? "italic" : "normal";
  if (name == "width") return JsonOf(QString("%1px").arg(place.width()));
  if (name == "height") return JsonOf(QString("%1px").arg(place.height()));
  return "";
}

// --- what a user does to an element ----------------------------------------

// Brings a widget inside scroll areas into their view, as a user scrolls to it.
void ScrollIntoView(QWidget* widget) {
  for (QWidget* at = widget->parentWidget(); at != nullptr && !at->isWindow(); at = at->parentWidget())
    if (auto* area = qobject_cast<QScrollArea*>(at)) area->ensureWidgetVisible(widget);
}

void CheckOutcome(const QString& why) {
  if (!why.isEmpty()) Fail("unknown error", why);
}

Json ElementClick(const Json& params, SessionState& session) {
  const Element element = session.elements.Resolve(params);
  QObject* object = element.object.data();
  CheckNotBlocked(object);
  if (element.item) {
    QAbstractItemView* view = ViewOf(element);
    CheckInteractable(view);
    if (!(element.index.flags() & Qt::ItemIsEnabled)) Fail("element not interactable", "the item is disabled");
    const QString why = kwauto::ClickIndex(view, element.index, false);
    if (why.startsWith("the item is not shown")) Fail("element not interactable", why);
    CheckOutcome(why);
    return nullptr;
  }
  if (QWidget* widget = element.Widget()) {
    ScrollIntoView(widget);
    CheckInteractable(widget);
    CheckOutcome(kwauto::Click(widget, kwauto::Centre(widget), false));
    return nullptr;
  }
  if (auto* action = qobject_cast<QAction*>(object)) {
    // An entry of an open menu, the menu bar or a tool bar: clicked where it shows.
    if (!action->isEnabled()) Fail("element not interactable", "the action is disabled");
    QRect place;
    QWidget* shownIn = ActionPlace(action, &place);
    if (shownIn == nullptr)
      Fail("element not interactable", "the action shows in no open menu, menu bar or tool bar");
    CheckOutcome(kwauto::Click(shownIn, place.center(), false));
    return nullptr;
  }
  Fail("element not interactable", QString("a %1 is no widget: nothing to click").arg(object->metaObject()->className()));
}

// The widget that edits text for an element that clears, or null.
QWidget* Editor(QWidget* widget, bool* readOnly) {
  if (auto* line = qobject_cast<QLineEdit*>(widget)) *readOnly = line->isReadOnly();
  else if (auto* text = qobject_cast<QTextEdit*>(widget)) *readOnly = text->isReadOnly();
  else if (auto* plain = qobject_cast<QPlainTextEdit*>(widget)) *readOnly = plain->isReadOnly();
  else if (auto* spin = qobject_cast<QAbstractSpinBox*>(widget)) *readOnly = spin->isReadOnly();
  else if (auto* combo = qobject_cast<QComboBox*>(widget)) return combo->isEditable() ? Editor(combo->lineEdit(), readOnly) : nullptr;
  else return nullptr;
  return widget;
}

Json ElementClear(const Json& params, SessionState& session) {
  const Element element = session.elements.Resolve(params);
  QWidget* widget = element.item ? nullptr : element.Widget();
  bool readOnly = false;
  QWidget* editor = widget != nullptr ? Editor(widget, &readOnly) : nullptr;
  if (editor == nullptr) Fail("invalid element state", "only an editable text field, text edit or spin box clears");
  CheckNotBlocked(widget);
  CheckInteractable(widget);
  if (readOnly) Fail("invalid element state", "the field is read-only");
  // What a user does: select everything, delete it.
  QList<kwauto::KeyStroke> keys;
  kwauto::KeyStroke selectAll, remove;
  selectAll.key = Qt::Key_A;
  selectAll.modifiers = Qt::ControlModifier;
  remove.key = Qt::Key_Delete;
  keys << selectAll << remove;
  CheckOutcome(kwauto::PressKeys(editor, keys));
  return nullptr;
}

Json ElementSendKeys(const Json& params, SessionState& session) {
  const Element element = session.elements.Resolve(params);
  const QString text = StringParam(params, "text");
  QWidget* widget = element.item ? ViewOf(element) : element.Widget();
  if (widget == nullptr)
    Fail("element not interactable",
         QString("a %1 is no widget: it takes no keys").arg(element.object->metaObject()->className()));
  CheckNotBlocked(widget);
  CheckInteractable(widget);
  if (element.item) {
    ViewOf(element)->setCurrentIndex(element.index);
  } else if (!widget->hasFocus()) {
    // As into a browser's text field, typing goes after the text already there.
    if (auto* line = qobject_cast<QLineEdit*>(widget)) line->end(false);
    if (auto* edit = qobject_cast<QTextEdit*>(widget)) edit->moveCursor(QTextCursor::End);
    if (auto* plain = qobject_cast<QPlainTextEdit*>(widget)) plain->moveCursor(QTextCursor::End);
  }
  CheckOutcome(kwauto::PressKeys(widget, kwauto::W3CKeyStrokes(text)));
  return nullptr;
}

Json TakeElementScreenshot(const Json& params, SessionState& session) {
  const Element element = session.elements.Resolve(params);
  if (element.item) {
    QAbstractItemView* view = ViewOf(element);
    return PngBase64(QPixmap::grabWidget(view->viewport(), view->visualRect(element.index)));
  }
  if (QWidget* widget = element.Widget()) return PngBase64(QPixmap::grabWidget(widget));
  const QRect place = ElementRect(element);
  if (place.isEmpty()) Fail("unable to capture screen", "the element shows nowhere on the screen");
  return PngBase64(QPixmap::grabWindow(QApplication::desktop()->winId(), place.x(), place.y(), place.width(),
                                       place.height()));
}

// --- what the clients' browser functions ask ----------------------------------
// WebDriver has no command for these: clients send functions of the browser
// (WebdriverIO's isFocused and isClickable, Selenium's scroll into view)
// that kwdriver recognises and asks as these.

// Whether the element has the keyboard focus; an item, whether its view has
// it and the item is the current one.
Json IsElementFocused(const Json& params, SessionState& session) {
  const Element element = session.elements.Resolve(params);
  const QWidget* focus = QApplication::focusWidget();
  if (focus == nullptr) return false;
  if (element.item) return focus == ViewOf(element) && ViewOf(element)->currentIndex() == element.index;
  return focus == element.Widget();
}

// Brings the element into view as a user scrolls to it: a widget inside
// scroll areas, an item in its view.
void BringIntoView(const Element& element) {
  if (element.item) ViewOf(element)->scrollTo(element.index);
  else if (QWidget* widget = element.Widget()) ScrollIntoView(widget);
}

// Whether a click at the element's centre reaches it: brought into view, it
// is displayed and enabled, no modal window keeps a user from it, and the
// widget at its centre is its own (nothing covers it).
Json IsElementClickable(const Json& params, SessionState& session) {
  const Element element = session.elements.Resolve(params);
  if (BlockingModal(element.object.data()) != nullptr) return false;
  if (auto* action = qobject_cast<QAction*>(element.object.data()))
    return action->isEnabled() && !ActionRect(action).isEmpty();
  QWidget* widget = element.item ? ViewOf(element) : element.Widget();
  if (widget == nullptr) return false;
  BringIntoView(element);
  if (!ElementDisplayed(element) || !widget->isEnabled()) return false;
  if (element.item && !(element.index.flags() & Qt::ItemIsEnabled)) return false;
  const QWidget* hit = QApplication::widgetAt(ElementRect(element).center());
  return hit != nullptr && (hit == widget || widget->isAncestorOf(hit));
}

// Brings the element into view and answers its rectangle on the screen as
// a browser's getBoundingClientRect does: x, y, width, height, left, top,
// right, bottom.
Json ScrollElementIntoView(const Json& params, SessionState& session) {
  const Element element = session.elements.Resolve(params);
  BringIntoView(element);
  const QRect place = ElementRect(element);
  Json out = RectJson(place);
  out["left"] = place.x();
  out["top"] = place.y();
  out["right"] = place.x() + place.width();
  out["bottom"] = place.y() + place.height();
  return out;
}

}  // namespace

void AddElementCommands(CommandTable& table) {
  table.Add("findElement", FindElement);
  table.Add("findElements", FindElements);
  table.Add("findElementFromElement", FindElementFromElement);
  table.Add("findElementsFromElement", FindElementsFromElement);
  table.Add("getActiveElement", GetActiveElement);
  table.Add("getElementAttribute", GetElementAttribute);
  table.Add("getElementProperty", GetElementProperty);
  table.Add("getElementCssValue", GetElementCssValue);
  table.Add("getElementText", GetElementText);
  table.Add("getElementTagName", GetElementTagName);
  table.Add("getComputedLabel", GetComputedLabel);
  table.Add("getComputedRole", GetComputedRole);
  table.Add("getElementRect", GetElementRect);
  table.Add("isElementSelected", IsElementSelected);
  table.Add("isElementEnabled", IsElementEnabled);
  table.Add("isElementDisplayed", IsElementDisplayed);
  table.Add("elementClick", ElementClick);
  table.Add("elementClear", ElementClear);
  table.Add("elementSendKeys", ElementSendKeys);
  table.Add("takeElementScreenshot", TakeElementScreenshot);
  table.Add("isElementFocused", IsElementFocused);
  table.Add("isElementClickable", IsElementClickable);
  table.Add("scrollElementIntoView", ScrollElementIntoView);
  AddWindowCommands(table);
}

}  // namespace kwagent
