// The session's element references. An object is held by a QPointer and an
// item by a QPersistentModelIndex: Qt clears both when the object is
// destroyed, or the item's row is removed or its model reset or destroyed,
// so a stale reference is told apart without reading freed memory.
#include <QtGui/QAbstractItemView>

#include "agent/Session.h"

namespace kwagent {

std::string ElementTable::NewId() { return "kw" + std::to_string(++m_next); }

std::string ElementTable::Id(QObject* object) {
  auto known = m_objectRefs.find(object);
  if (known != m_objectRefs.end()) {
    const Element& element = m_elements[known->second];
    // Another object at the address of a destroyed one gets a new reference.
    if (element.object.data() == object) return known->second;
  }
  const std::string id = NewId();
  Element element;
  element.object = object;
  m_elements[id] = element;
  m_objectRefs[object] = id;
  return id;
}

std::string ElementTable::Id(QAbstractItemView* view, const QModelIndex& index) {
  std::vector<std::string>& ids = m_itemRefs[view];
  for (size_t i = 0; i < ids.size();) {
    const Element& element = m_elements[ids[i]];
    if (element.object.data() != view || !element.index.isValid()) {
      ids.erase(ids.begin() + i);  // stale: stays in m_elements to be answered so
      continue;
    }
    if (element.index == index) return ids[i];
    ++i;
  }
  const std::string id = NewId();
  Element element;
  element.object = view;
  element.index = index;
  element.item = true;
  m_elements[id] = element;
  ids.push_back(id);
  return id;
}

Json ElementTable::Reference(QObject* object) { return Json{{kElementKey, Id(object)}}; }

Json ElementTable::Reference(QAbstractItemView* view, const QModelIndex& index) {
  return Json{{kElementKey, Id(view, index)}};
}

Json ElementTable::Reference(const Element& element) {
  if (element.item) return Reference(static_cast<QAbstractItemView*>(element.object.data()), element.index);
  return Reference(element.object.data());
}

Element ElementTable::ResolveId(const std::string& id) const {
  auto found = m_elements.find(id);
  if (found == m_elements.end())
    Fail("no such element", QString("no element has the reference \"%1\"").arg(QString::fromUtf8(id.c_str())));
  const Element& element = found->second;
  if (element.object.isNull())
    Fail("stale element reference", QString("the object of element \"%1\" is gone").arg(QString::fromUtf8(id.c_str())));
  if (element.item) {
    const auto* view = static_cast<const QAbstractItemView*>(element.object.data());
    if (!element.index.isValid() || view->model() != element.index.model())
      Fail("stale element reference", QString("the item of element \"%1\" is gone: its row was removed, or its "
                                              "view's model reset or replaced")
                                          .arg(QString::fromUtf8(id.c_str())));
  }
  return element;
}

Element ElementTable::Resolve(const Json& params, const char* key) const {
  auto found = params.find(key);
  if (found == params.end() || !found->is_string())
    Fail("invalid argument", QString("\"%1\" must be an element reference (a string)").arg(key));
  return ResolveId(found->get<std::string>());
}

Element ElementTable::ResolveReference(const Json& reference) const {
  auto found = reference.is_object() ? reference.find(kElementKey) : reference.end();
  if (!reference.is_object() || found == reference.end() || !found->is_string())
    Fail("invalid argument", QString("an element reference is an object {\"%1\": \"...\"}").arg(kElementKey));
  return ResolveId(found->get<std::string>());
}

}  // namespace kwagent
