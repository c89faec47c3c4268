#include "kwscript/Properties.h"

#include <QtCore/QMetaProperty>
#include <QtCore/QMetaType>
#include <QtCore/QVariant>

#include "kwscript/ScriptObject.h"

namespace kwscript {

namespace {

// "property text of QLineEdit "nameEdit"", for messages.
QString Describe(const QObject* object, const QMetaProperty& property) {
  return QString("property %1 of %2 \"%3\"")
      .arg(property.name())
      .arg(object->metaObject()->className())
      .arg(object->objectName());
}

// A script value as a QVariant of `type`, or an invalid QVariant.
QVariant VariantOf(const VARIANT* value, QVariant::Type type) {
  if (V_VT(value) == (VT_BYREF | VT_VARIANT)) value = V_VARIANTREF(value);
  QVariant out;
  if (V_VT(value) == VT_BSTR) {
    out = QString::fromWCharArray(V_BSTR(value), SysStringLen(V_BSTR(value)));
  } else if (V_VT(value) == VT_BOOL) {
    out = V_BOOL(value) != VARIANT_FALSE;
  } else if (V_VT(value) == VT_DISPATCH) {
    // A value object of this script: a copy of what it stands for.
    const CScriptObject* facade = CScriptObject::FacadeOf(V_DISPATCH(value));
    const int typeId = facade != nullptr ? QMetaType::type(facade->ClassName().toLatin1().constData()) : 0;
    if (typeId == 0 || typeId >= QMetaType::User || typeId != int(type)) return QVariant();
    out = QVariant(typeId, facade->instance());
  } else {
    VARIANT number;
    VariantInit(&number);
    if (FAILED(VariantChangeType(&number, const_cast<VARIANT*>(value), 0, VT_R8))) return QVariant();
    out = V_R8(&number);
  }
  return out.convert(type) ? out : QVariant();
}

}  // namespace

int FindProperty(const QObject* object, const QString& name) {
  const QMetaObject* meta = object->metaObject();
  for (int i = 0; i < meta->propertyCount(); ++i)
    if (name.compare(QLatin1String(meta->property(i).name()), Qt::CaseInsensitive) == 0) return i;
  return -1;
}

HRESULT ReadProperty(QObject* object, int index, ScriptContext* context, VARIANT* result, QString* why) {
  const QMetaProperty property = object->metaObject()->property(index);
  const QVariant value = property.read(object);
  if (!value.isValid()) {
    *why = "cannot read " + Describe(object, property);
    return E_FAIL;
  }
  if (result == nullptr) return S_OK;
  if (property.isEnumType() || property.isFlagType()) {
    V_VT(result) = VT_I4;
    V_I4(result) = value.toInt();
    return S_OK;
  }
  const HRESULT hr = ScriptValueOf(value, context, result, why);
  if (FAILED(hr)) *why = QString("%1 is a %2, which scripts cannot hold").arg(Describe(object, property), value.typeName());
  return hr;
}

HRESULT ScriptValueOf(const QVariant& value, ScriptContext* context, VARIANT* result, QString* why) {
  VariantInit(result);
  if (!value.isValid()) {
    V_VT(result) = VT_NULL;
    return S_OK;
  }
  switch (value.type()) {
    case QVariant::String:
    case QVariant::ByteArray:
    case QVariant::Char:
    case QVariant::Url:
      ReturnText(result, value.toString());
      return S_OK;
    case QVariant::Bool:
      V_VT(result) = VT_BOOL;
      V_BOOL(result) = value.toBool() ? VARIANT_TRUE : VARIANT_FALSE;
      return S_OK;
    case QVariant::Int:
    case QVariant::UInt:
      V_VT(result) = VT_I4;
      V_I4(result) = value.toInt();
      return S_OK;
    case QVariant::LongLong:
    case QVariant::ULongLong:
    case QVariant::Double:
      V_VT(result) = VT_R8;
      V_R8(result) = value.toDouble();
      return S_OK;
    default:
      break;
  }
  // Another value type: a new object over a copy, as a member returning it
  // by value gives.
  const QByteArray typeName = value.typeName();
  void* copy = QMetaType::construct(value.userType(), value.constData());
  IDispatch* exposer = nullptr;
  const std::wstring wrapperType = QString::fromLatin1(typeName).toStdWString();
  if (context == nullptr || copy == nullptr || MakeExposer(context, wrapperType.c_str(), copy, &exposer) != S_OK) {
    if (copy != nullptr) QMetaType::destroy(value.userType(), copy);
    *why = QString("a %1, which scripts cannot hold").arg(typeName.constData());
    return DISP_E_TYPEMISMATCH;
  }
  V_VT(result) = VT_DISPATCH;
  V_DISPATCH(result) = CScriptObject::Wrap(exposer, context, nullptr, true);
  exposer->Release();
  return S_OK;
}

HRESULT WriteProperty(QObject* object, int index, const VARIANT* value, QString* why) {
  const QMetaProperty property = object->metaObject()->property(index);
  if (!property.isWritable()) {
    *why = Describe(object, property) + " is read-only";
    return DISP_E_MEMBERNOTFOUND;
  }
  // An object destroyed by the script or the application: copying it would
  // read freed memory.
  const VARIANT* given = V_VT(value) == (VT_BYREF | VT_VARIANT) ? V_VARIANTREF(value) : value;
  const CScriptObject* facade = V_VT(given) == VT_DISPATCH ? CScriptObject::FacadeOf(V_DISPATCH(given)) : nullptr;
  QString gone;
  if (facade != nullptr && facade->Gone(&gone)) {
    *why = QString("%1: the value given is gone; %2").arg(Describe(object, property), gone);
    return RPC_E_DISCONNECTED;
  }
  QVariant converted = VariantOf(value, property.isEnumType() || property.isFlagType() ? QVariant::Int : property.type());
  if (!converted.isValid() || !property.write(object, converted)) {
    *why = QString("%1 takes a %2; the value given does not convert").arg(Describe(object, property), property.typeName());
    return DISP_E_TYPEMISMATCH;
  }
  return S_OK;
}

}  // namespace kwscript
