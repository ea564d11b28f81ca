#include "dispatch/job.h"

#include "common/paths.h"
#include "language/jobinfo.h"

#include <QDir>
#include <QFileInfo>

Job Job::named(const QString& baseName, const OutputChoice& choice, const QString& folder)
{
    Job job;
    job.baseName = baseName;
    job.folder = folder;
    job.choice = choice;
    job.psPath = Paths::join(folder, baseName + QStringLiteral(".ps"));
    if (!choice.extension().isEmpty())
        job.outputPath = Paths::join(folder, baseName + choice.extension());
    return job;
}

QString Job::relative(const QString& path) const
{
    return folder.isEmpty() ? QFileInfo(path).fileName()
                            : QDir::fromNativeSeparators(QDir(folder).relativeFilePath(path));
}

void Job::readFrom(QByteArrayView data)
{
    const DetectedLanguage detected = DetectJobLanguage(data);
    language = detected.language;
    const JobInfo info = ReadJobInfo(data, detected);
    title = info.title;
    user = info.user;
    bytes = data.size();
}
