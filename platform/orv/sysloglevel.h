#pragma once

#include <string>

// The log facility: modules by name, each with a mask of the levels that it lets through.
//
// A line goes to standard error ("2026-11-21T06:44:43Z info horad: text", the time in UTC), or, with the
// system log on, to /dev/log as a datagram of the daemon facility. Where standard error is the journal of a
// service manager, which notes time and program itself, the line is "<6>text", or "<6>timefrm: text" if the
// module is not named as the program is. Control characters in a text become
// blanks: a line stays one line whatever was in it, and those at its end are dropped. U+0080 to U+009F are
// among them, since terminals obey them as well. A byte that is no UTF-8 becomes a question mark. Texts of up
// to 1900 bytes pass whole. Nothing here reports failure; a line that can't be written is lost.
//
// Nothing here waits. What standard error does not take, a full pipe for one, is counted; the next line that
// it takes stands behind one that says so: "warning horad: 12 lines before this one could not be written".
//
// The four level functions may be called from a signal handler: no allocation, no lock, no stdio, and errno
// stays as it was. The others may not, and belong to one thread. The file and the line number are for
// facilities that print them; this one does not.

struct ORV_Sysloglevel_Modul;

// Bits of a trace level. 113 lets errors, warnings and infos through, 1023 everything.
enum ORV_Sysloglevel_Level : unsigned {
    ORV_Sysloglevel_Fatal = 0x01,
    ORV_Sysloglevel_Error = 0x10,
    ORV_Sysloglevel_Warning = 0x20,
    ORV_Sysloglevel_Info = 0x40,
    ORV_Sysloglevel_Debug = 0x80,
};

// Names the program: `program` is the tag of its lines on the system log. An empty `prefix` stands for none;
// any other stands before each text. Finds out whether standard error is the journal: the lines of a program
// that does not call this never look as the journal wants them.
void ORV_Sysloglevel_construct2(const char* prefix, const char* program);

// The module of that name, made on the first call with trace level 113; it lives as long as the process.
// There is room for 16 modules, later ones share the last.
ORV_Sysloglevel_Modul* ORV_Sysloglevel_registerModul(const char* name);
// A name that is not registered changes nothing.
void ORV_Sysloglevel_changeTracelevel(const char* module, unsigned mask);
// 1 sends the lines to the system log, 0 to standard error.
void ORV_Sysloglevel_set(int useSyslog);

void ORV_Sysloglevel_error(const ORV_Sysloglevel_Modul* module, const char* file, int line, const char* text);
void ORV_Sysloglevel_warning(const ORV_Sysloglevel_Modul* module, const char* file, int line,
                             const char* text);
void ORV_Sysloglevel_info(const ORV_Sysloglevel_Modul* module, const char* file, int line, const char* text);
void ORV_Sysloglevel_debug(const ORV_Sysloglevel_Modul* module, const char* file, int line, const char* text);

// printf into a string.
std::string VAStr(const char* format, ...) __attribute__((format(printf, 1, 2)));
