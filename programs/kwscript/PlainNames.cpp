#include "kwscript/PlainNames.h"

#include <QtCore/QStringList>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>
#include <memory>

#include "kwscript/Arguments.h"
#include "kwscript/ScriptObject.h"

namespace kwscript {

namespace {

// How well a string of enumerator names fits an enumeration or QFlags type:
// 2 when they are its names, else 0.
int NamesFit(const std::string& type, const VARIANT* names) {
  int ignored = 0;
  return EnumeratorValue(type.c_str(), QString::fromWCharArray(V_BSTR(names), SysStringLen(V_BSTR(names))), &ignored)
             ? 2
             : 0;
}

// How well a script value fits an argument kind and its parameter: 0 not
// at all, 1 by conversion or without knowing an object's class, 2
// exactly, 3 a whole number for an int, a fraction for a double or a
// string for a QString.
int Fit(const VARIANT* value, char kind, const ParameterInfo* parameter) {
  if (V_VT(value) == (VT_BYREF | VT_VARIANT)) value = V_VARIANTREF(value);
  const std::string type = parameter != nullptr ? parameter->type : "";
  const VARTYPE vt = V_VT(value);
  const bool isNull = vt == VT_NULL || vt == VT_EMPTY || (vt == VT_DISPATCH && V_DISPATCH(value) == nullptr);
  const bool isWhole = vt == VT_I1 || vt == VT_I2 || vt == VT_I4 || vt == VT_I8 || vt == VT_UI1 || vt == VT_UI2 ||
                       vt == VT_UI4 || vt == VT_UI8 || vt == VT_INT || vt == VT_UINT;
  const bool isFraction = vt == VT_R4 || vt == VT_R8 || vt == VT_CY || vt == VT_DECIMAL;
  const CScriptObject* facade = vt == VT_DISPATCH ? CScriptObject::FacadeOf(V_DISPATCH(value)) : nullptr;
  switch (kind) {
    case 'b':
      return vt == VT_BOOL ? 2 : 0;
    case 'e':
      if (vt == VT_BSTR) return NamesFit(type, value);
      return isWhole ? 2 : isFraction ? 1 : 0;
    case 'n':
      if ((isWhole && type == "int") || (isFraction && (type == "double" || type == "qreal"))) return 3;
      return isWhole || isFraction ? 2 : 0;
    case 'f':
      if (vt == VT_BSTR) return NamesFit(type, value);
      if (facade != nullptr) return facade->IsA(type.c_str()) ? 2 : 0;
      return isWhole ? 2 : 0;
    case 't':
      return vt == VT_BSTR ? 2 : 0;
    case 's':
    case 'o':
      if (kind == 's' && vt == VT_BSTR) return 3;  // a script string is a QString before it is bytes or a name
      if (isNull) return parameter != nullptr && parameter->pointer ? 1 : 0;
      if (facade == nullptr) return 0;
      return facade->IsA(type.c_str()) ? 2 : 0;
    default:
      return 0;  // raw pointers: not from a script
  }
}

}  // namespace

std::string PlainNameOf(const char* memberName, const wchar_t* interfaceName) {
  std::string name(memberName);
  const std::string prefix = QString::fromWCharArray(interfaceName).mid(5).toStdString() + "_";  // after "Iwrp_"
  if (name.compare(0, prefix.size(), prefix) == 0) name = name.substr(prefix.size());
  const std::size_t underscore = name.find_last_of('_');
  if (underscore != std::string::npos && underscore + 1 < name.size() &&
      name.find_first_not_of("0123456789", underscore + 1) == std::string::npos)
    name = name.substr(0, underscore);  // the overload number
  return name;
}

QString OverloadGroup::Declarations() const {
  QStringList lines;
  for (const Overload& overload : overloads) lines << QString("  %1").arg(overload.member->declaration);
  return lines.join("\n");
}

namespace {

// Edits (insert, delete, replace) from one name to the other, any case.
int Distance(const QString& a, const QString& b) {
  const QString x = a.toLower(), y = b.toLower();
  std::vector<int> row(y.size() + 1);
  for (int j = 0; j <= y.size(); ++j) row[j] = j;
  for (int i = 1; i <= x.size(); ++i) {
    int diagonal = row[0];
    row[0] = i;
    for (int j = 1; j <= y.size(); ++j) {
      const int above = row[j];
      row[j] = std::min(std::min(row[j] + 1, row[j - 1] + 1), diagonal + (x[i - 1] == y[j - 1] ? 0 : 1));
      diagonal = above;
    }
  }
  return row[y.size()];
}

}  // namespace

QStringList NearestNames(const std::vector<const InterfaceInfo*>& interfaces, const QStringList& extra,
                         const QString& name, int count) {
  QStringList names = extra;
  for (const InterfaceInfo* info : interfaces) {
    const std::wstring interfaceName = QString::fromLatin1(info->name).toStdWString();
    for (std::size_t i = 0; i < info->count; ++i) {
      names << QString::fromLatin1(info->members[i].name);
      names << QString::fromStdString(PlainNameOf(info->members[i].name, interfaceName.c_str()));
    }
  }
  names.removeDuplicates();
  std::vector<std::pair<int, int>> byDistance;  // (distance, index), each distance measured once
  for (int i = 0; i < names.size(); ++i) byDistance.emplace_back(Distance(names[i], name), i);
  std::stable_sort(byDistance.begin(), byDistance.end(),
                   [](const std::pair<int, int>& a, const std::pair<int, int>& b) { return a.first < b.first; });
  QStringList nearest;
  for (int i = 0; i < count && i < int(byDistance.size()); ++i) nearest << names[byDistance[i].second];
  return nearest;
}

const OverloadGroup* FindOverloads(const std::vector<const InterfaceInfo*>& interfaces, const wchar_t* name) {
  static std::map<std::wstring, std::unique_ptr<OverloadGroup>> cache;  // "Iwrp_QLineEdit|settext" -> group
  if (interfaces.empty()) return nullptr;
  std::wstring key = QString::fromLatin1(interfaces.back()->name).toStdWString() + L"|" +
                     QString::fromWCharArray(name).toLower().toStdWString();
  auto cached = cache.find(key);
  if (cached != cache.end()) return cached->second.get();
  std::unique_ptr<OverloadGroup> group;
  const QString wanted = QString::fromWCharArray(name);
  for (auto info = interfaces.rbegin(); info != interfaces.rend() && group == nullptr; ++info) {
    const std::wstring interfaceName = QString::fromLatin1((*info)->name).toStdWString();
    for (std::size_t i = 0; i < (*info)->count; ++i) {
      const MemberInfo& member = (*info)->members[i];
      if (QString::fromStdString(PlainNameOf(member.name, interfaceName.c_str())).compare(wanted, Qt::CaseInsensitive))
        continue;
      if (group == nullptr) group.reset(new OverloadGroup);
      group->overloads.push_back(Overload{&member});
    }
  }
  return (cache[key] = std::move(group)).get();
}

const OverloadGroup* ConstructorOverloads(const InterfaceInfo& info) {
  static std::map<const InterfaceInfo*, std::unique_ptr<OverloadGroup>> cache;
  auto cached = cache.find(&info);
  if (cached != cache.end()) return cached->second.get();
  std::unique_ptr<OverloadGroup> group;
  if (info.makerCount > 0) {
    group.reset(new OverloadGroup);
    for (std::size_t i = 0; i < info.makerCount; ++i) group->overloads.push_back(Overload{&info.makers[i]});
  }
  return (cache[&info] = std::move(group)).get();
}

const Overload* ChooseOverload(const OverloadGroup& group, const DISPPARAMS& params, const QString& name, QString* why) {
  const UINT count = params.cArgs - params.cNamedArgs;
  // The best fit of the arguments given; among equals, the one that needs
  // the fewest defaults.
  const Overload* best = nullptr;
  int bestScore = -1;
  std::size_t bestDefaults = 0;
  int tied = 0;
  for (const Overload& overload : group.overloads) {
    const std::size_t all = std::strlen(overload.member->arguments);
    if (count > all || count < RequiredArguments(*overload.member)) continue;
    int score = 0;
    for (UINT position = 0; position < count && score >= 0; ++position) {
      const ParameterInfo* parameter = overload.member->parameters != nullptr ? &overload.member->parameters[position] : nullptr;
      const int fit = Fit(&params.rgvarg[params.cArgs - 1 - position], overload.member->arguments[position], parameter);
      score = fit == 0 ? -1 : score + fit;
    }
    if (score < 0) continue;
    const std::size_t defaults = all - count;
    if (score > bestScore || (score == bestScore && defaults < bestDefaults)) {
      best = &overload;
      bestScore = score;
      bestDefaults = defaults;
      tied = 1;
    } else if (score == bestScore && defaults == bestDefaults) {
      ++tied;
    }
  }
  if (best != nullptr && tied == 1) return best;
  *why = QString(best == nullptr ? "%1 takes no %2 argument(s) of these kinds; its declarations:\n%3"
                                 : "%1 with %2 argument(s) of these kinds is ambiguous; its declarations:\n%3")
             .arg(name)
             .arg(count)
             .arg(group.Declarations());
  return nullptr;
}

}  // namespace kwscript
