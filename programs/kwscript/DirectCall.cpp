#include "kwscript/DirectCall.h"

#include "host/ManagerHost.h"
#include "kwscript/ScriptObject.h"

namespace kwscript {

void DirectResult::SetNumber(double number) {
  V_VT(&value) = VT_R8;
  V_R8(&value) = number;
  if (number == static_cast<double>(static_cast<LONG>(number))) {
    V_VT(&value) = VT_I4;
    V_I4(&value) = static_cast<LONG>(number);
  }
}

void DirectResult::SetText(const QString& text) {
  VariantClear(&value);
  V_VT(&value) = VT_BSTR;
  V_BSTR(&value) = NewBstr(text);
}

namespace direct {

namespace {

VARIANT Converted(const VARIANT& value, VARTYPE type) {
  VARIANT out;
  VariantInit(&out);
  VariantChangeType(&out, const_cast<VARIANT*>(&value), 0, type);
  return out;
}

}  // namespace

bool Bool(const VARIANT& value) {
  const VARIANT b = Converted(value, VT_BOOL);
  return V_VT(&b) == VT_BOOL && V_BOOL(&b) != VARIANT_FALSE;
}

double Real(const VARIANT& value) {
  const VARIANT r = Converted(value, VT_R8);
  return V_VT(&r) == VT_R8 ? V_R8(&r) : 0;
}

const char* Text(const VARIANT& value) {
  return V_VT(&value) == (VT_BYREF | VT_UI1) ? reinterpret_cast<const char*>(V_UI1REF(&value)) : nullptr;
}

void* InstanceOf(const VARIANT& value) {
  return V_VT(&value) == VT_DISPATCH && V_DISPATCH(&value) != nullptr ? kwhost::InstanceOf(V_DISPATCH(&value)) : nullptr;
}

}  // namespace direct

}  // namespace kwscript
