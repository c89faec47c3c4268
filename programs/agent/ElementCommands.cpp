#include "agent/Session.h"

#include <QtGui/QAbstractItemView>

namespace kwagent {

// The session's element table in its simplest form: a reference per
// object or item, kept for the session.
Json ElementTable::Reference(QObject* object) {
  auto known = m_objectRefs.find(object);
  if (known != m_objectRefs.end() && m_elements[known->second].object == object) return {{kElementKey, known->second}};
  const std::string ref = "o" + std::to_string(++m_next);
  Element element;
  element.object = object;
  m_elements[ref] = element;
  m_objectRefs[object] = ref;
  return {{kElementKey, ref}};
}

Json ElementTable::Reference(QAbstractItemView* view, const QModelIndex& index) {
  for (const auto& entry : m_elements)
    if (entry.second.item && entry.second.object == view && entry.second.index == index)
      return {{kElementKey, entry.first}};
  const std::string ref = "i" + std::to_string(++m_next);
  Element element;
  element.object = view;
  element.index = index;
  element.item = true;
  m_elements[ref] = element;
  return {{kElementKey, ref}};
}

Element ElementTable::Resolve(const Json& params, const char* key) const {
  auto found = params.find(key);
  if (found == params.end() || !found->is_string()) Fail("invalid argument", QString("\"%1\" must be a string").arg(key));
  auto element = m_elements.find(found->get<std::string>());
  if (element == m_elements.end()) Fail("no such element", "no element has the reference " + TextOf(*found));
  if (element->second.object.isNull() || (element->second.item && !element->second.index.isValid()))
    Fail("stale element reference", "the element " + TextOf(*found) + " is gone");
  return element->second;
}

Element ElementTable::ResolveReference(const Json& reference) const {
  return Resolve(reference, kElementKey);
}

void ElementTable::Clear() {
  m_elements.clear();
  m_objectRefs.clear();
}

void AddElementCommands(CommandTable&) {}

}  // namespace kwagent
