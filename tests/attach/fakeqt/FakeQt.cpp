// Stands for a QtCore4.dll or QtGui4.dll built by another compiler: the names
// are Qt's, the exports are not those of mingw-w64's C++ ABI.
extern "C" __declspec(dllexport) int qt_other_abi_marker() { return 4; }
