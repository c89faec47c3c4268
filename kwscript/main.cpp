// kwscript: a Qt 4.8 application that shows a small form, loads
// kwQtWrappers.dll as a test-automation host does and runs a JScript (.js)
// or VBScript (.vbs) file against it.
//   kwscript FILE            runs the script; exit status 0 when it succeeded
//   kwscript --members TYPE  lists what a script can call on an object of TYPE
#include <windows.h>

#include <QtGui/QApplication>

#include <cstdio>
#include <cstring>

#include "ManagerHost.h"
#include "kwscript/AppObject.h"
#include "kwscript/DemoForm.h"
#include "kwscript/ScriptHost.h"

namespace {

const char* ArgumentWord(char kind) {
  switch (kind) {
    case 'b':
      return "boolean";
    case 'e':
      return "number (enumeration)";
    case 'n':
      return "number";
    case 't':
      return "string (bytes)";
    case 's':
      return "string or QString";
    case 'o':
      return "object";
    default:
      return "pointer";
  }
}

const char* ResultWord(char kind) {
  switch (kind) {
    case '-':
      return "nothing";
    case 'b':
      return "boolean";
    case 'e':
      return "number (enumeration)";
    case 'n':
      return "number";
    case 'o':
      return "object";
    case 'r':
      return "object or null";
    default:
      return "pointer";
  }
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
  for (const std::wstring& interfaceName : kwscript::CScriptObject::ComposedInterfaces(exposer)) {
    const kwscript::InterfaceInfo* info = kwscript::FindInterface(interfaceName.c_str());
    std::printf("%ls (%u members)\n", interfaceName.c_str(), info ? static_cast<unsigned>(info->count) : 0u);
    for (std::size_t i = 0; info != nullptr && i < info->count; ++i) {
      const kwscript::MemberInfo& member = info->members[i];
      QStringList arguments;
      for (const char* kind = member.arguments; *kind != '\0'; ++kind) arguments << ArgumentWord(*kind);
      std::printf("  %s(%s) -> %s\n      %s  [%s]\n", member.name, arguments.join(", ").toUtf8().constData(),
                  ResultWord(member.result), member.declaration, member.location);
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
  kwtest::ManagerHost host(L"kwQtWrappers.dll");
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
