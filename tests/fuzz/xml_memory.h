// The policy library without a file system: only how it reads a file is replaced.
#pragma once

#include "fuzz.h"
#include "teskxml_tools.h"

// Opens the library with these contents of the configuration and of the section "dusko"; nothing is loaded yet.
void xml_open(std::string_view config, std::string_view section);

// Checks a result, and after a failure what is told about it: one line of printable text.
void xml_check_result(int result);
