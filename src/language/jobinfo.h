#pragma once

#include "language/joblanguage.h"

#include <QByteArrayView>
#include <QString>

// What a job says about itself: its title and its user, from PJL, then the
// DSC comments (%%Title:, %%For:), then the PDF Info dictionary; the first
// found wins for each.
struct JobInfo {
    QString title;
    QString user;
};
JobInfo ReadJobInfo(QByteArrayView bytes, const DetectedLanguage& detected);

// A title as sent, made readable: valid UTF-8 is kept; else UTF-16BE with a
// BOM, PostScript/PDF string escapes (a string in parentheses), PDFDocEncoding
// (pdf), Latin-1 last. Control characters are taken out.
QString DecodeTitle(QByteArrayView raw, bool pdf = false);
