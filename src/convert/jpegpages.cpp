#include "convert/jpegpages.h"

#include "common/runtimeerror.h"
#include "convert/cdibsection.h"
#include "convert/imagefile.h"
#include "convert/jpegwriter.h"

#include <QThread>
#include <deque>
#include <future>
#include <memory>
#include <optional>
#include <system_error>
#include <vector>

namespace
{
// One page on its way: decoded here, encoded on a worker, written here.
struct Page {
    int number = 0;
    std::unique_ptr<cDIBSection> dib;
    std::vector<PassedOver> passedOver; // steps run ahead, reported at the page's turn
    std::future<EncodedJpeg> encoded;   // declared after dib: waited for before dib goes
};

std::future<EncodedJpeg> startEncode(const cDIBSection* dib)
{
    const auto encode = [dib] { return EncodeJPG(*dib, 95); };
    try {
        return std::async(std::launch::async, encode);
    } catch (const std::system_error&) {
        return std::async(std::launch::deferred, encode); // no thread to be had: encode here
    }
}
} // namespace

void SaveJpegPages(ImageFile& image, int frames, const QString& prefix,
                   const std::function<void(const QString&)>& pageFailed, bool exclusive,
                   const std::function<void(int)>& pageDone)
{
    // Only the encode runs on another thread, at most one page per core;
    // decoding, messages, log lines and files stay here, in page order.
    const std::size_t inFlight = std::size_t(std::max(1, QThread::idealThreadCount()));
    std::deque<Page> pages;
    const auto finishOldest = [&] {
        Page& p = pages.front();
        for (const PassedOver& f : p.passedOver)
            ReportPassedOver(f.number, f.description);
        // "_00" is a fixed text, not a two-digit field: page 12 is _0012.jpg.
        const QString number = QStringLiteral("00") + QString::number(p.number);
        bool saved = false;
        ResumeNext([&] {
            saved = WriteJPG(p.encoded.get(), prefix + u'_' + number + QStringLiteral(".jpg"),
                             exclusive);
        });
        if (!saved)
            ResumeNext([&] { pageFailed(prefix + number + QStringLiteral(".jpg")); });
        const int done = p.number;
        pages.pop_front();
        if (pageDone)
            pageDone(done);
    };
    for (int page = 1; page <= frames; ++page) {
        Page p;
        p.number = page;
        p.dib = std::make_unique<cDIBSection>();
        const auto ahead = [&p](auto&& step) {
            if (std::optional<PassedOver> failure = TryStep(step))
                p.passedOver.push_back(*failure);
        };
        ahead([&] { image.setActiveFrame(page); });
        ahead([&] { p.dib->CreateFromPicture(image.Picture()); });
        p.encoded = startEncode(p.dib.get());
        pages.push_back(std::move(p));
        if (pages.size() >= inFlight)
            finishOldest();
    }
    while (!pages.empty())
        finishOldest();
}
