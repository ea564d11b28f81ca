#include "dispatch/jobdispatcher.h"

#include "common/doevents.h"
#include "common/msgbox.h"
#include "common/runtimeerror.h"
#include "convert/cdibsection.h"
#include "convert/conversion.h"
#include "convert/currentprinter.h"
#include "convert/imagefile.h"
#include "convert/jpegpages.h"
#include "convert/jpegwriter.h"
#include "convert/tiffprint.h"
#include "dispatch/jobfiles.h"

JobDispatcher::JobDispatcher(Host host) : m_host(std::move(host)) {}

void JobDispatcher::save(const Job& job, const QByteArray& bytes) const
{
    SaveJobFile(job.psPath, bytes);
}

QString JobDispatcher::commandLine(const Job& job) const
{
    const auto output = job.choice.gsOutput();
    return output ? GhostscriptCommandLine(*output, m_host.gsPath, job.outputPath, job.psPath)
                  : QString();
}

void JobDispatcher::convert(const Job& job) const
{
    const QString line = commandLine(job);
    if (!line.isEmpty())
        StartGhostscript(line, job.outputPath, m_host.log, m_host.owner);
}

void JobDispatcher::complete(const Job& job) const
{
    using Action = OutputChoice::Action;
    Steps step;
    switch (job.choice.action) {
    case Action::Print:
        print(job);
        break;
    case Action::Pdf:
        // A missing file counts as locked too: this waits for the whole PDF.
        waitUntil([&] { return !IsFileLocked(job.outputPath); });
        break;
    case Action::Image: {
        ImageFile image;
        waitUntil([&] { return TiffLoad(image, job.outputPath); });
        if (job.choice.image == OutputChoice::ImageKind::Jpeg) {
            exportJpegPages(image, job, step);
            step([&] { WipeUntilDone(job.outputPath); });
        }
        break;
    }
    default:
        break;
    }
    step([&] { WipeUntilDone(job.psPath); });
}

void JobDispatcher::print(const Job& job) const
{
    const QString previous = CurrentPrinter::DeviceName();
    CurrentPrinter::SelectByName(m_host.printer);
    WaitForFileCreated(job.outputPath);
    PrintTiffPages(job.outputPath, m_host.log);
    CurrentPrinter::SelectByName(previous);
    WipeUntilDone(job.outputPath);
}

void JobDispatcher::exportJpegPages(ImageFile& image, const Job& job, Steps& step) const
{
    const QString prefix = job.outputPath.left(job.outputPath.size() - 4); // without ".tif"
    const auto failed = [](const QString& file) {
        MsgBox(QStringLiteral("Failed to save the picture to the file: '") + file +
                   QStringLiteral("'"),
               MsgIcon::Exclamation);
    };
    int frames = 0;
    step([&] { frames = image.FrameCount(); });
    if (frames <= 1) {
        cDIBSection dib;
        dib.CreateFromPicture(image.Picture());
        if (!SaveJPG(dib, prefix + QStringLiteral(".jpg"), 95))
            failed(prefix + QStringLiteral(".jpg"));
        return;
    }
    // From the first page on, a failing step is passed over to the end of the dispatch.
    step.skipErrors = true;
    SaveJpegPages(image, frames, prefix, failed);
}
