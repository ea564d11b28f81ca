#pragma once

#include <QByteArray>
#include <QString>

class cDIBSection;

// Writes the image as a JPEG file of the given quality (1-100). Failures are
// shown to the user and give false.
// exclusive: the file is made new, never over another file nor through a link
// (the queued mode's job files); otherwise an existing file is replaced.
bool SaveJPG(const cDIBSection& image, const QString& fileName, int quality,
             bool exclusive = false);

// SaveJPG in two halves: the encode touches nothing but the image (any
// thread may run it while the image is left alone); the write shows what
// SaveJPG would show.
struct EncodedJpeg {
    enum class Result { Ok, InitFailed, Failed } result = Result::Failed;
    QByteArray bytes;
};
EncodedJpeg EncodeJPG(const cDIBSection& image, int quality);
bool WriteJPG(const EncodedJpeg& encoded, const QString& fileName, bool exclusive = false);
