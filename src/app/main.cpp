#include "cloud/cloudcheck.h"
#include "cloud/cloudshare.h"
#include "common/log.h"
#include "common/msgbox.h"
#include "common/paths.h"
#include "platform/quitsignals.h"
#include "server/frmmain.h"
#include "server/programids.h"
#include "server/runoptions.h"
#include "server/windowrequest.h"

#include <QApplication>
#include <cstdio>

int main(int argc, char* argv[])
{
    RunOptions options = RunOptions::fromArguments(argc, argv);
    // Nothing is drawn headless: the minimal platform skips loading the fonts, a third of the
    // start-up.
    if (options.headless)
        qputenv("QT_QPA_PLATFORM", "minimal");

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quorvel"));
    QApplication::setQuitOnLastWindowClosed(false);
    if (!options.parse(app))
        return options.exitCode;

    setMsgMode(options.headless ? MsgMode::Headless : MsgMode::Gui);
    Log::setEcho(true);
    quitOnTerminationSignals();
    if (!options.programFolder.isEmpty())
        Paths::setProgramFolder(options.programFolder);
    if (!CloudShare::KeepAccount(options.cloudUrl, options.cloudUser, options.cloudPasswordStdin))
        return 2;
    if (options.cloudTest) {
        const ProgramIds ids = ProgramIds::load();
        CloudCheck check(CloudCheck::configured(), ids.installationId, ids.userEMailId);
        QObject::connect(&check, &CloudCheck::line, &check, [](const QString& text) {
            std::printf("%s\n", qPrintable(text));
            std::fflush(stdout);
        });
        return check.run() ? 0 : 1;
    }
    if (options.headless)
        Log::line(
            QStringLiteral("Quorvel runs headless; jobs are kept in %1").arg(Paths::jobFolder()));

    if (!options.headless && !options.openWindow.isEmpty() &&
        WindowRequest::sendToRunning(options.openWindow))
        return 0;

    frmMain window(options.listen, ProgramIds::load(), nullptr, options.jobs);
    if (!options.headless)
        WindowRequest::listen(&window, [&window](const QString& w) { window.openWindow(w); });
    options.apply(window);
    if (options.headless && !window.isListening())
        return 1;
    if (!options.headless)
        window.show();
    return app.exec();
}
