#pragma once

#include <QString>

class cDIBSection;

// Writes the image as a JPEG file of the given quality (1-100). Failures are
// shown to the user and give false.
bool SaveJPG(const cDIBSection& image, const QString& fileName, int quality);
