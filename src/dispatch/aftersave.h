#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>

// What happens to a job's files once they are kept (AfterSave): nothing,
// opened with the desktop's handler (AfterSave "open"), or handed to a
// program, its path as the only argument (AfterSave "run",
// AfterSaveProgram): no shell, killed after AfterSaveTimeout seconds (60),
// its exit logged. Programs run beside the event loop, never waited for.
class AfterSave : public QObject
{
    Q_OBJECT
public:
    enum class Action { Nothing, Open, Run };
    struct Setup {
        Action action = Action::Nothing;
        QString program;
        int timeoutSeconds = 60;
    };
    static Setup fromSettings();

    AfterSave(std::function<void(const QString&)> log, QObject* parent = nullptr);
    // The files of one job, full paths.
    void saved(const QStringList& files, const Setup& setup = fromSettings());
    // Programs started and not yet ended.
    int running() const { return m_running; }

signals:
    void ended(const QString& file, int exitCode, bool killed);

private:
    void run(const QString& program, const QString& file, int timeoutSeconds);

    std::function<void(const QString&)> m_log;
    int m_running = 0;
};
