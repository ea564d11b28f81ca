#pragma once

#include "dispatch/job.h"

#include <QByteArray>
#include <QString>
#include <functional>
#include <memory>

class ImageFile;
class QObject;
struct Steps;

// The road of one job past the buffer: save, Ghostscript, wait, print / keep
// / export pages, wipe. It knows no widgets: messages go through MsgBox, the
// rest to the log function its host gives it. Everything it holds is its
// own, so a second dispatch started inside one of its waits takes nothing
// from it.
class JobDispatcher
{
public:
    struct Host {
        QString gsPath;
        QString printer; // where print jobs go
        std::function<void(const QString&)> log;
        QObject* owner = nullptr; // Ghostscript runs end with it
        GsLimits limits;
        bool safer = false; // an old Ghostscript: -dSAFER is added
        // Long work under way: page done of total; total 0 while the count is not known.
        std::function<void(const QString& job, int done, int total)> progress;
    };
    explicit JobDispatcher(Host host);

    // The job's bytes as its .ps file.
    void save(const Job& job, const QByteArray& bytes) const;
    // The line that converts the job; empty when nothing is converted.
    QString commandLine(const Job& job) const;
    // Starts Ghostscript on the saved job, without waiting; done is called when it has ended.
    std::shared_ptr<const GsRun> convert(const Job& job,
                                         std::function<void(const GsRun&)> done = {}) const;
    // Waits for Ghostscript's output, carries out the choice, wipes what the
    // choice does not keep; the .ps file always. Given the run, a run that
    // ends without its output ends the wait too (the job is lost; logged).
    // A run that fails keeps what it made (keepPartial) and the .ps, logged.
    JobOutcome complete(const Job& job, const std::shared_ptr<const GsRun>& run = {}) const;
    // After a failed run: the pages made before the error stay as
    // *_partial.pdf / *_partial.tif, or as JPEG pages, or are printed; a
    // stub with no page is removed. Says what was done, for the log.
    QString keepPartial(const Job& job, JobOutcome& outcome) const;

    // A job whose language is not converted here, its bytes kept as they
    // came at keptPath: with Print, PCL and PCL XL go to the printer as a
    // raw job and are wiped once it took them; the rest stays, logged.
    // unreadable: why a job in a language converted here could not be read.
    JobOutcome keepUnconverted(const Job& job, const QString& keptPath,
                               const QString& unreadable = {}) const;

private:
    // The pages printed; -1 when the run failed.
    int print(const Job& job, const std::function<bool()>& ended,
              const std::function<bool()>& failed) const;
    // The JPEG pages made of the job's TIFF, by name.
    QStringList jpegPages(const Job& job, int frames) const;
    void exportJpegPages(ImageFile& image, const Job& job, Steps& step) const;
    void progress(const Job& job, int done, int total) const;

    Host m_host;
};
