#pragma once

#include "dispatch/job.h"

#include <QString>

// The names of a job's kept files (PDF, TIFF, JPEG pages, a job kept as it
// came): File_yyMMdd_hhmmss, or the NameTemplate setting when one is set.
// The transient .ps always keeps the plain name.
class JobNaming
{
public:
    static inline const QString kTemplateKey = QStringLiteral("NameTemplate");
    static inline const QString kCounterKey = QStringLiteral("NameCounter");

    // The template of the settings; empty keeps the plain name.
    static JobNaming fromSettings();
    explicit JobNaming(QString pattern = {}) : m_pattern(std::move(pattern).trimmed()) {}
    bool templated() const { return !m_pattern.isEmpty(); }
    const QString& pattern() const { return m_pattern; }

    // The template's tokens filled from the job and made safe, '/' between
    // sub-folders, no extension. counter: the {counter} value.
    QString expand(const Job& job, qint64 counter) const;
    // Why a template cannot be used, for the preferences; empty when it can.
    static QString problem(const QString& pattern);
    // One folder or file name safe on Linux and Windows: no control
    // characters, none of <>:"/\|?*, no "..", no reserved device name, no
    // trailing dot or space, at most 200 bytes of UTF-8.
    static QString safePart(const QString& text);

    // With a template, and a choice that keeps a file: the job's output is
    // the template's name (the next free one, made as a new file here, its
    // sub-folders too) and its files are made new only. False, with why,
    // when that name cannot be made; the job keeps its plain name then.
    bool name(Job& job, QString* why = nullptr) const;
    // Whether name() gives this job a name of the template's.
    bool applies(const Job& job) const;
    // Where a job kept as it came goes, relative to the job folder without
    // the extension: the plain base name, or the template's (sub-folders made).
    QString keptName(const Job& job) const;
    // The path of a job kept as it came, with its extension: the plain name
    // (replaced when there), or the template's next free one made new here.
    QString keptPath(const Job& job, const QString& extension) const;

private:
    // The next {counter}, kept in the settings across runs.
    static qint64 nextCounter();
    QString m_pattern;
};
