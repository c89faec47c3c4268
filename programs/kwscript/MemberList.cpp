#include "kwscript/MemberList.h"

#include <QtCore/QMetaObject>
#include <QtCore/QMetaProperty>
#include <QtCore/QStringList>

#include <cstdio>
#include <algorithm>
#include <cstring>
#include <set>

#include "host/HostSupport.h"
#include "kwscript/MemberTable.h"
#include "kwscript/Output.h"
#include "kwscript/PlainNames.h"

namespace kwscript {

namespace {

// What each kind letter of the member table means to a script writer, as an
// argument and as a result.
struct KindWords {
  char kind;
  const char* argument;
  const char* result;
};
const KindWords kKindWords[] = {
    {'-', "", "nothing"},
    {'b', "boolean", "boolean"},
    {'e', "number (enumeration)", "number (enumeration)"},
    {'n', "number", "number"},
    {'t', "string (bytes)", "pointer"},
    {'s', "string or QString", "object"},
    {'o', "object", "object"},
    {'r', "object", "object or null"},
    {'p', "pointer", "pointer"},
};

const KindWords& WordsOf(char kind) {
  for (const KindWords& words : kKindWords)
    if (words.kind == kind) return words;
  return kKindWords[sizeof kKindWords / sizeof kKindWords[0] - 1];
}

QString Arguments(const MemberInfo& member) {
  QStringList arguments;
  for (const char* kind = member.arguments; *kind != '\0'; ++kind) arguments << WordsOf(*kind).argument;
  return arguments.join(", ");
}


// Where a member comes from: the library's list for the type, a base the
// facade adds, or a call kwscript makes itself.
QString Origin(const MemberInfo& member, bool addedBase) {
  if (member.direct != nullptr)
    return "kwscript calls it itself: the library has no body for it, or no object for a class it takes or gives";
  return addedBase ? "an added base" : "the library's list";
}

}  // namespace

int ListMembers(IWrappersManager* manager, const QString& type, bool json) {
  int placeholder = 0;
  IDispatch* exposer = nullptr;
  const std::wstring name = type.toStdWString();
  if (manager->CreateWrapper(name.c_str(), &placeholder, &exposer) != S_OK) {
    std::fprintf(stderr, "kwscript: \"%s\" is not a type name the library knows\n", type.toUtf8().constData());
    return 1;
  }
  std::vector<const InterfaceInfo*> interfaces;
  for (const std::wstring& interfaceName : kwhost::ComposedInterfaces(exposer))
    if (const InterfaceInfo* info = FindInterface(interfaceName.c_str())) interfaces.push_back(info);
  exposer->Release();
  // The bases the library's list leaves out, as a script's object adds
  // them: the farthest first.
  std::set<const InterfaceInfo*> listed(interfaces.begin(), interfaces.end()), added;
  std::vector<const InterfaceInfo*> bases;
  for (const ChainLink& link : interfaces.empty() ? std::vector<ChainLink>() : WholeChain(*interfaces.back(), nullptr)) {
    IDispatch* base = nullptr;
    const std::wstring baseName = QString::fromLatin1(link.typeName).toStdWString();
    if (manager->CreateWrapper(baseName.c_str(), &placeholder, &base) != S_OK) continue;
    for (const std::wstring& interfaceName : kwhost::ComposedInterfaces(base)) {
      const InterfaceInfo* info = FindInterface(interfaceName.c_str());
      if (info != nullptr && listed.insert(info).second) {
        bases.push_back(info);
        added.insert(info);
      }
    }
    base->Release();
  }
  const std::vector<ChainLink> chain = interfaces.empty() ? std::vector<ChainLink>() : WholeChain(*interfaces.back(), nullptr);
  auto depth = [&chain](const InterfaceInfo* info) {
    for (std::size_t i = 0; i < chain.size(); ++i)
      if (std::strcmp(chain[i].typeName, info->typeName) == 0) return static_cast<int>(i);
    return -1;
  };
  std::stable_sort(bases.begin(), bases.end(),
                   [&](const InterfaceInfo* a, const InterfaceInfo* b) { return depth(a) > depth(b); });
  interfaces.insert(interfaces.begin(), bases.begin(), bases.end());

  QStringList jsonMembers, jsonPlain, jsonProperties;
  // Prefixed names, class by class in composition order.
  for (const InterfaceInfo* info : interfaces) {
    const bool base = added.count(info) > 0;
    if (!json)
      PrintLine(QString("%1 (%2 members%3)")
                    .arg(info->name)
                    .arg(info->count)
                    .arg(base ? "; a base the library's list leaves out, which kwscript adds" : ""));
    for (std::size_t i = 0; i < info->count; ++i) {
      const MemberInfo& member = info->members[i];
      if (json)
        jsonMembers << QString("    {\"name\": %1, \"class\": %2, \"arguments\": %3, \"result\": %4, "
                               "\"declaration\": %5, \"location\": %6, \"from\": %7}")
                           .arg(Quoted(member.name), Quoted(QString(info->name).mid(5)), Quoted(Arguments(member)),
                                Quoted(WordsOf(member.result).result), Quoted(member.declaration), Quoted(member.location),
                                Quoted(Origin(member, base)));
      else
        PrintLine(QString("  %1(%2) -> %3\n      %4  [%5]%6")
                  .arg(member.name, Arguments(member), WordsOf(member.result).result, member.declaration,
                       member.location, member.direct != nullptr ? "  (" + Origin(member, base) + ")" : QString()));
    }
  }
  // Plain names: each once, from the most derived class that declares it.
  if (!json) PrintLine("plain names (Qt's own; a call picks the overload by its arguments):");
  std::set<QString> seen;
  for (auto info = interfaces.rbegin(); info != interfaces.rend(); ++info) {
    const std::wstring interfaceName = QString::fromLatin1((*info)->name).toStdWString();
    for (std::size_t i = 0; i < (*info)->count; ++i) {
      const QString plain = QString::fromStdString(PlainNameOf((*info)->members[i].name, interfaceName.c_str()));
      if (!seen.insert(plain.toLower()).second) continue;
      const OverloadGroup* group = FindOverloads(interfaces, plain.toStdWString().c_str());
      QStringList overloads;
      for (const Overload& overload : group->overloads) {
        const MemberInfo& member = *overload.member;
        overloads << (json ? QString("{\"arguments\": %1, \"result\": %2, \"calls\": %3, \"declaration\": %4}")
                                 .arg(Quoted(Arguments(member)), Quoted(WordsOf(member.result).result), Quoted(member.name),
                                      Quoted(member.declaration))
                           : QString("    %1(%2) -> %3    = %4: %5")
                                 .arg(plain, Arguments(member), WordsOf(member.result).result, member.name,
                                      member.declaration));
      }
      if (json)
        jsonPlain << QString("    {\"name\": %1, \"overloads\": [%2]}").arg(Quoted(plain), overloads.join(", "));
      else
        PrintLine("  " + plain + "\n" + overloads.join("\n"));
    }
  }
  // Properties, from the meta-object of the most derived class that has one.
  const QMetaObject* meta = nullptr;
  for (auto info = interfaces.rbegin(); info != interfaces.rend() && meta == nullptr; ++info) meta = (*info)->meta;
  if (!json) PrintLine(meta != nullptr ? "properties (read and written as plain values):" : "properties: none (not a QObject)");
  for (int i = 0; meta != nullptr && i < meta->propertyCount(); ++i) {
    const QMetaProperty property = meta->property(i);
    if (json)
      jsonProperties << QString("    {\"name\": %1, \"type\": %2, \"writable\": %3}")
                            .arg(Quoted(property.name()), Quoted(property.typeName()),
                                 property.isWritable() ? "true" : "false");
    else
      PrintLine(QString("  %1: %2%3").arg(property.name(), property.typeName(),
                                       property.isWritable() ? ", writable" : ", read-only"));
  }
  if (json) {
    PrintLine(QString("{\"type\": %1,\n  \"members\": [\n%2\n  ],\n  \"plain\": [\n%3\n  ],\n  \"properties\": [\n%4\n  ]}")
              .arg(Quoted(type), jsonMembers.join(",\n"), jsonPlain.join(",\n"), jsonProperties.join(",\n")));
  }
  return 0;
}

}  // namespace kwscript
