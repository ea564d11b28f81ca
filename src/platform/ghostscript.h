#pragma once

#include <string>

// The Ghostscript console interpreter: the copy shipped in the program
// folder's bin/ when there is one, else the system's.
std::wstring ghostscriptProgram(const std::wstring& programFolder);

// Limits the calling process (0: none); run in the Ghostscript child before it
// starts. Unix: setrlimit (CPU time, address space). Windows: not limited yet
// (a Job Object would do it); the caller's wall-time limit still ends a run.
void limitGhostscriptChild(int cpuSeconds, int memoryMB);

// The signal by which a run that passed its CPU time limit ended; 0 where
// there is none.
int cpuLimitSignal();
