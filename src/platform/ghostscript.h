#pragma once

#include <QString>

// The Ghostscript console interpreter: the copy shipped in the program
// folder's bin/ when there is one, else the system's.
QString ghostscriptProgram();
