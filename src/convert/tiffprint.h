#pragma once

#include <QString>
#include <functional>

class ImageFile;

// Loads the TIFF into image; false while it cannot be loaded yet (Linux lets
// a file be read while Ghostscript still writes it).
bool TiffLoad(ImageFile& image, const QString& fileName);

// Waits until the TIFF loads, then draws its pages on the current printer.
// Pages that cannot be printed are logged and passed over.
void PrintTiffPages(const QString& tiffFilePath, const std::function<void(const QString&)>& log);
