// Members the library drops because it has no object for a class they take
// or give (QAbstractItemView::model(), QTableWidget::selectedItems()) are
// called by kwscript itself, through functions the generator writes into
// the member table. Each takes the instance, the arguments as the facade
// converted them (first first) and gives what the call returned: a number,
// a boolean or a text, or objects, one or a list of them.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <QtCore/QObject>
#include <QtCore/QString>

#include <type_traits>
#include <vector>

namespace kwscript {

// One object a direct call gave.
struct DirectItem {
  void* instance;
  const char* type;          // its static class ("QAbstractItemModel")
  QObject* object;           // the QObject it is, for the most derived class; or null
  void (*destroy)(void*);    // for a copy the script owns: frees it; else null
};

class DirectResult {
 public:
  DirectResult() { VariantInit(&value); }
  ~DirectResult() { VariantClear(&value); }
  DirectResult(const DirectResult&) = delete;
  DirectResult& operator=(const DirectResult&) = delete;

  void SetBool(bool b) {
    V_VT(&value) = VT_BOOL;
    V_BOOL(&value) = b ? VARIANT_TRUE : VARIANT_FALSE;
  }
  void SetNumber(double number);
  void SetText(const QString& text);
  void MakeList() { list = true; }
  void AddText(const QString& text) { texts.push_back(text), items.push_back(DirectItem{nullptr, nullptr, nullptr, nullptr}); }
  // An object the application owns (a pointer result; null gives null).
  template <class T>
  void Add(T* pointer, const char* type) {
    items.push_back(DirectItem{const_cast<void*>(static_cast<const void*>(pointer)), type, ObjectOf(pointer), nullptr});
  }
  // A new object, which the script owns.
  template <class T>
  void AddNew(T* made, const char* type) {
    items.push_back(DirectItem{made, type, nullptr, [](void* p) { delete static_cast<T*>(p); }});
  }
  // A copy of a value, which the script owns.
  template <class T>
  void AddValue(const T& copied, const char* type) {
    items.push_back(DirectItem{new T(copied), type, nullptr, [](void* p) { delete static_cast<T*>(p); }});
  }

  VARIANT value;  // a number, boolean or text; empty for objects
  bool list = false;
  std::vector<DirectItem> items;
  std::vector<QString> texts;  // the texts of a list of strings, in order

 private:
  template <class T>
  static QObject* ObjectOf(T* pointer) {
    if constexpr (std::is_base_of<QObject, T>::value)
      return const_cast<QObject*>(static_cast<const QObject*>(pointer));
    else
      return nullptr;
  }
};

using DirectCall = HRESULT (*)(void* self, const VARIANT* arguments, DirectResult* out);

// What a generated direct call takes its arguments with.
namespace direct {
bool Bool(const VARIANT& value);
double Real(const VARIANT& value);
const char* Text(const VARIANT& value);
void* InstanceOf(const VARIANT& value);
template <class T>
T& Object(const VARIANT& value) {
  return *static_cast<T*>(InstanceOf(value));
}
template <class T>
T* Pointer(const VARIANT& value) {
  return static_cast<T*>(InstanceOf(value));
}
}  // namespace direct

}  // namespace kwscript
