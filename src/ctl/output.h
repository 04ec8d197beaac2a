// What the program says: lines of text, or one JSON object a line. To a console as text, to anything else as
// UTF-8. Lines end with CR LF.
#pragma once

#include <windows.h>

// Finds the standard handles. A program that was started at a prompt joins that console and opens no window;
// started by a key it has none, and says nothing.
void OpenOutput();

// One line to standard output, and one to standard error behind the program's name. At most 1023 characters,
// cut beyond that.
void Print(const wchar_t* format, ...);
void Complain(const wchar_t* format, ...);

// A line that is told in either form: build the object, then end it with the text for people.
constexpr DWORD RECORD_CHARACTERS = 2048;
struct Record {
    wchar_t json[RECORD_CHARACTERS];

    explicit Record(const wchar_t* kind);
};

void AddText(Record* record, const wchar_t* name, const wchar_t* text);
void AddNumber(Record* record, const wchar_t* name, DWORD number);
void AddFlag(Record* record, const wchar_t* name, bool flag);

// Prints the object with --json, else the text.
void Tell(Record* record, const wchar_t* format, ...);
