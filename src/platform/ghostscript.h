#pragma once

#include <string>

// The Ghostscript console interpreter: the copy shipped in the program
// folder's bin/ when there is one, else the system's.
std::wstring ghostscriptProgram(const std::wstring& programFolder);
