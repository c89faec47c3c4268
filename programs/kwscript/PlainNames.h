// Plain member names: what a script writer calls a member in Qt's own words
// ("setText", "resize") rather than by the library's prefixed, numbered name
// ("QLineEdit_setText", "QWidget_resize_2").
//
// A plain name stands for the overloads of the most derived composed class
// that declares it (a derived class's declaration hides its bases', as in
// C++). Among them a call picks by the number of arguments (the library
// takes every argument, defaults included) and their kinds: number (a whole
// one prefers int, a fraction double), string, boolean, object (of which
// class, when two overloads take objects), null. Everything comes from the
// generated member table. Arguments with defaults may be left out at the
// end; among overloads that fit equally, the one that needs the fewest
// defaults is called.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <string>
#include <vector>

#include "kwscript/MemberTable.h"

namespace kwscript {

// The plain name of a prefixed member name of interface `interfaceName`:
// "QWidget_resize_2" of "Iwrp_QWidget" is "resize".
std::string PlainNameOf(const char* memberName, const wchar_t* interfaceName);

struct Overload {
  const MemberInfo* member;
};

struct OverloadGroup {
  std::vector<Overload> overloads;
  // The declarations of the overloads, one a line, for messages.
  QString Declarations() const;
};

// The overloads `name` (any case) stands for on an object composing
// `interfaces` (its own class last); null when no composed class declares
// it. Groups are made once per class and name.
const OverloadGroup* FindOverloads(const std::vector<const InterfaceInfo*>& interfaces, const wchar_t* name);

// The public constructors of a value class as overloads; null for a class
// with none.
const OverloadGroup* ConstructorOverloads(const InterfaceInfo& info);

// The `count` names nearest to `name` (by edit distance, any case) among
// the members of `interfaces`, plain and prefixed, and `extra` names (an
// object's properties).
QStringList NearestNames(const std::vector<const InterfaceInfo*>& interfaces, const QStringList& extra,
                         const QString& name, int count);

// The overload that fits the script's arguments best. When none fits, or
// two fit equally well, null, and `why` says so with the declarations.
const Overload* ChooseOverload(const OverloadGroup& group, const DISPPARAMS& params, const QString& name, QString* why);

}  // namespace kwscript
