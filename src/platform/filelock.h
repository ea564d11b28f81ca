#pragma once

#include <string>

// True while another process holds the file open (Ghostscript still
// writing it). Windows refuses to open such a file anyway; Linux does not,
// so it is asked explicitly there.
bool heldOpenByAnotherProcess(const std::wstring& path);
