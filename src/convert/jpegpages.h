#pragma once

#include <QString>
#include <functional>

class ImageFile;

// Writes frames 1..frames of the image as prefix + "_00" + page + ".jpg"
// (quality 95), in page order. A failing step is passed over; a page that is
// not written is named to pageFailed (prefix + "00" + page + ".jpg", as the
// dispatch's message has always named it) before the next page is written.
// pageDone is told each page's number once its turn is over, in order.
void SaveJpegPages(ImageFile& image, int frames, const QString& prefix,
                   const std::function<void(const QString&)>& pageFailed, bool exclusive = false,
                   const std::function<void(int)>& pageDone = {});
