#include "platform/ghostscript.h"

std::wstring ghostscriptProgram(const std::wstring& programFolder)
{
    return programFolder + L"\\bin\\gswin32c.exe";
}

void limitGhostscriptChild(int, int) {}

int cpuLimitSignal()
{
    return 0;
}
