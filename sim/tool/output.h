// What zorpmsim prints, and what becomes of it when it cannot be printed.
#pragma once

#include <string>

// Line by line unless it goes to a file.
void prepare_output();
// What printf has returned; does not return for less than 0, as flush_output.
void check_printed(int printed);
// A line of the machine's state.
void print_shown(const std::string& line);
// Any other text.
void say(const std::string& text);
// Writes out what is left. Does not return when something could not be written: says why (of a pipe that the
// reader has closed: nothing) and ends the process with EXIT_OUTPUT.
void flush_output();
