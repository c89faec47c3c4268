// Debug trace log of the library.
//
// A trace file is written only when a trace folder is configured in the
// registry (value "DebugTraceFolder" under HKCU or HKLM "SOFTWARE\Quillmoor").
// The file gets a header describing the process and the library, one
// time-stamped UTF-8 line per TraceWrite call, and a closing line at unload.
// Every message also goes to the debugger output. The file holds nothing
// but the header, the stub manager's two reports and the closing line:
// whatever else a developer may want to see goes through DebugWrite, to the
// debugger output alone.
#pragma once

// Opens the trace file if a folder is configured. Called once, first of all,
// during the library's static initialisation; registers CloseTraceLog with
// atexit whether or not a file was opened.
void OpenTraceLog();

// Writes the closing line and closes the file. Runs from the library's exit
// list, after every other exit action that may still write.
void CloseTraceLog();

// Formats a message (wide printf-style format with the MS C runtime meaning:
// %s is a wide string, %p prints the full pointer in upper-case hex) and
// writes it as one line. Does nothing when no trace file is open.
void TraceWrite(const wchar_t* format, ...);

// Formats a message as TraceWrite does and sends it to the debugger output
// only (OutputDebugStringW), whether or not a trace file is open; it never
// reaches the trace file.
void DebugWrite(const wchar_t* format, ...);
