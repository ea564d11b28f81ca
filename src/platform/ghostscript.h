#pragma once

#include <QString>

class QProcess;

// The Ghostscript console interpreter: the copy shipped in the program
// folder's bin/ when there is one, else the system's.
QString ghostscriptProgram();

// Makes the run start under these limits (0: none). Unix: setrlimit in the
// child (CPU time, address space). Windows: not limited yet; the wall-time
// limit, kept by the caller, still ends a run there.
void limitGhostscript(QProcess& gs, int cpuSeconds, int memoryMB);

// The signal by which a run that passed its CPU time limit ended; 0 where
// there is none.
int cpuLimitSignal();
