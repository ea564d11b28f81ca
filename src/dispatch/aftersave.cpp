#include "dispatch/aftersave.h"

#include "common/settings.h"

#include <QDesktopServices>
#include <QDir>
#include <QProcess>
#include <QTimer>
#include <QUrl>

AfterSave::Setup AfterSave::fromSettings()
{
    Setup s;
    const QString word = SettingsStore::get(QStringLiteral("AfterSave")).trimmed().toLower();
    s.action = word == QLatin1String("open")  ? Action::Open
               : word == QLatin1String("run") ? Action::Run
                                              : Action::Nothing;
    s.program = SettingsStore::get(QStringLiteral("AfterSaveProgram")).trimmed();
    bool ok = false;
    const int seconds = SettingsStore::get(QStringLiteral("AfterSaveTimeout")).toInt(&ok);
    if (ok && seconds > 0)
        s.timeoutSeconds = seconds;
    return s;
}

AfterSave::AfterSave(std::function<void(const QString&)> log, QObject* parent)
    : QObject(parent), m_log(std::move(log))
{
}

void AfterSave::saved(const QStringList& files, const Setup& setup)
{
    if (files.isEmpty() || setup.action == Action::Nothing)
        return;
    if (setup.action == Action::Open) {
        // The first file: a job of many JPEG pages opens one viewer, not one per page.
        if (!QDesktopServices::openUrl(QUrl::fromLocalFile(files.first())))
            m_log(QStringLiteral("After saving: %1 cannot be opened")
                      .arg(QDir::toNativeSeparators(files.first())));
        return;
    }
    if (setup.program.isEmpty()) {
        m_log(QStringLiteral("After saving: no program is set (AfterSaveProgram)"));
        return;
    }
    for (const QString& file : files)
        run(setup.program, file, setup.timeoutSeconds);
}

void AfterSave::run(const QString& program, const QString& file, int timeoutSeconds)
{
    auto* p = new QProcess(this);
    auto* limit = new QTimer(p);
    limit->setSingleShot(true);
    const QString path = QDir::toNativeSeparators(file);
    ++m_running;
    connect(limit, &QTimer::timeout, p, [this, p, program, path, timeoutSeconds] {
        m_log(QStringLiteral("After saving: %1 \"%2\" still ran after %3 s; it is stopped")
                  .arg(program, path)
                  .arg(timeoutSeconds));
        p->setProperty("killed", true);
        p->kill();
    });
    connect(p, &QProcess::finished, this,
            [this, p, program, path, file](int code, QProcess::ExitStatus status) {
                const bool killed = p->property("killed").toBool();
                if (!killed)
                    m_log(
                        status == QProcess::NormalExit
                            ? QStringLiteral("After saving: %1 \"%2\" ended with exit code %3")
                                  .arg(program, path)
                                  .arg(code)
                            : QStringLiteral("After saving: %1 \"%2\" crashed").arg(program, path));
                --m_running;
                emit ended(file, code, killed);
                p->deleteLater();
            });
    connect(p, &QProcess::errorOccurred, this, [this, p, program, path](QProcess::ProcessError e) {
        if (e != QProcess::FailedToStart)
            return;
        m_log(QStringLiteral("After saving: %1 cannot be started (%2)")
                  .arg(program, p->errorString()));
        --m_running;
        p->deleteLater();
    });
    p->setProgram(program);
    p->setArguments({file}); // no shell: the path is one argument whatever it holds
    p->setStandardInputFile(QProcess::nullDevice());
    p->setStandardOutputFile(QProcess::nullDevice());
    p->setStandardErrorFile(QProcess::nullDevice());
    limit->start(timeoutSeconds * 1000);
    p->start();
}
