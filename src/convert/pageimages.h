#pragma once

#include "language/joblanguage.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

// Images, raster streams and XPS become a PDF that Ghostscript takes on like
// any job: JPEG, PNG and TIFF through Qt's image readers, PWG raster and
// Apple raster (URF) through libcups' raster reader, XPS through libgxps's
// xpstopdf. Each page keeps its resolution, so its size on paper.
bool NeedsPdfFirst(JobLanguage language);
// The PDF; empty, with why, when the job cannot be read.
QByteArray PagesAsPdf(QByteArrayView bytes, JobLanguage language, QString* why);
