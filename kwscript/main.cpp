// kwscript: a Qt 4.8 application that shows a small form, loads
// kwQtWrappers.dll as a test-automation host does and runs a JScript (.js)
// or VBScript (.vbs) file against it.
//   kwscript FILE            runs the script; exit status 0 when it succeeded
//   kwscript --members TYPE  lists what a script can call on an object of TYPE
#include <windows.h>

#include <QtGui/QApplication>

#include <cstdio>
#include <cstring>

#include "host/ManagerHost.h"
#include "kwscript/AppObject.h"
#include "kwscript/DemoForm.h"
#include "kwscript/ScriptHost.h"

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

// The members of every class an object of `type` composes, in composition
// order: script name, arguments and result in script terms, Qt declaration.
int ListMembers(IWrappersManager* manager, const char* type) {
  int placeholder = 0;
  IDispatch* exposer = nullptr;
  const std::wstring name = QString(type).toStdWString();
  if (manager->CreateWrapper(name.c_str(), &placeholder, &exposer) != S_OK) {
    std::printf("kwscript: \"%s\" is not a type name the library knows\n", type);
    return 1;
  }
  for (const std::wstring& interfaceName : kwhost::ComposedInterfaces(exposer)) {
    const kwscript::InterfaceInfo* info = kwscript::FindInterface(interfaceName.c_str());
    std::printf("%ls (%u members)\n", interfaceName.c_str(), info ? static_cast<unsigned>(info->count) : 0u);
    for (std::size_t i = 0; info != nullptr && i < info->count; ++i) {
      const kwscript::MemberInfo& member = info->members[i];
      QStringList arguments;
      for (const char* kind = member.arguments; *kind != '\0'; ++kind) arguments << WordsOf(*kind).argument;
      std::printf("  %s(%s) -> %s\n      %s  [%s]\n", member.name, arguments.join(", ").toUtf8().constData(),
                  WordsOf(member.result).result, member.declaration, member.location);
    }
  }
  exposer->Release();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  if (argc < 2 || (std::strcmp(argv[1], "--members") == 0 && argc < 3)) {
    std::printf("usage: kwscript FILE.js|FILE.vbs\n       kwscript --members TYPE\n");
    return 2;
  }
  kwhost::ManagerHost host(L"kwQtWrappers.dll");
  if (!host.ready()) {
    std::printf("kwscript: cannot load kwQtWrappers.dll\n");
    return 2;
  }
  if (std::strcmp(argv[1], "--members") == 0) return ListMembers(host.manager(), argv[2]);

  DemoForm form;
  form.show();
  QApplication::processEvents();
  kwscript::ScriptContext context;
  context.manager = host.manager();
  bool succeeded = false;
  {
    kwscript::CAppObject app(&context);
    succeeded = kwscript::RunScriptFile(QString::fromLocal8Bit(argv[1]).toStdWString(), &app);
  }
  QApplication::processEvents();
  std::printf("form: %s\n", form.Describe().toUtf8().constData());
  std::printf("script objects left after the engine closed: %ld\n", static_cast<long>(context.liveObjects));
  host.Unload();
  return succeeded ? 0 : 1;
}
