#include "convert/jpegwriter.h"

#include "common/msgbox.h"
#include "convert/cdibsection.h"
#include "platform/safefile.h"

#include <QFile>
#include <memory>
#include <turbojpeg.h>

namespace
{
struct TjCloser {
    void operator()(void* handle) const { tjDestroy(handle); }
};
struct TjFree {
    void operator()(unsigned char* buffer) const { tjFree(buffer); }
};

void failed()
{
    MsgBox(QStringLiteral("Failed to save to JPG"), MsgIcon::Exclamation);
}
} // namespace

EncodedJpeg EncodeJPG(const cDIBSection& image, int quality)
{
    EncodedJpeg out;
    std::unique_ptr<void, TjCloser> handle(tjInitCompress());
    if (!handle) {
        out.result = EncodedJpeg::Result::InitFailed;
        return out;
    }
    const unsigned char* bits = image.DIBSectionBitsPtr();
    if (!bits || image.Width() <= 0 || image.Height() <= 0)
        return out;
    unsigned char* jpeg = nullptr;
    unsigned long jpegSize = 0;
    // Rows are bottom row first, blue-green-red, padded to the buffer's pitch.
    // A page of greys is stored as one grey channel: the same picture, less work.
    const int subsampling = image.IsGrayscale() ? TJSAMP_GRAY : TJSAMP_420;
    const int result =
        tjCompress2(handle.get(), bits, image.Width(), image.BytesPerScanLine(), image.Height(),
                    TJPF_BGR, &jpeg, &jpegSize, subsampling, quality, TJFLAG_BOTTOMUP);
    std::unique_ptr<unsigned char, TjFree> owned(jpeg);
    if (result != 0 || !jpeg)
        return out;
    out.bytes = QByteArray(reinterpret_cast<const char*>(jpeg), qsizetype(jpegSize));
    out.result = EncodedJpeg::Result::Ok;
    return out;
}

bool WriteJPG(const EncodedJpeg& encoded, const QString& fileName, bool exclusive)
{
    if (encoded.result == EncodedJpeg::Result::InitFailed) {
        // TurboJPEG gives no code when it cannot start; -1 stands for it.
        MsgBox(QStringLiteral("Failed to initialise the IJL library: ") + QString::number(-1),
               MsgIcon::Exclamation);
        return false;
    }
    if (encoded.result != EncodedJpeg::Result::Ok) {
        failed();
        return false;
    }
    if (exclusive) {
        const std::string_view bytes(encoded.bytes.constData(), std::size_t(encoded.bytes.size()));
        if (safefile::write(fileName.toStdWString(), {bytes}, safefile::Mode::Exclusive) ==
            safefile::Result::Written)
            return true;
        failed();
        return false;
    }
    // Written under the full Unicode name; a partial file does not stay.
    QFile file(fileName);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        failed();
        return false;
    }
    if (file.write(encoded.bytes) != encoded.bytes.size() || !file.flush()) {
        file.close();
        file.remove();
        failed();
        return false;
    }
    file.close();
    return true;
}

bool SaveJPG(const cDIBSection& image, const QString& fileName, int quality, bool exclusive)
{
    return WriteJPG(EncodeJPG(image, quality), fileName, exclusive);
}
