#include "cloud/cloudcheck.h"
#include "cloud/cloudshare.h"
#include "common/log.h"
#include "common/msgbox.h"
#include "common/paths.h"
#include "common/settings.h"
#include "platform/quitsignals.h"
#include "server/frmmain.h"
#include "server/programids.h"
#include "server/runoptions.h"

#include <QApplication>
#include <cstdio>
#include <iostream>
#include <string>

namespace
{
// --cloud-url, --cloud-user, --cloud-password-stdin: kept before anything uses the share; the
// password goes to the credential store (or, without one, the settings made private).
bool keepCloudAccount(const RunOptions& options)
{
    if (!options.cloudUrl.isEmpty())
        SettingsStore::put(CloudShare::kBaseUrlKey, options.cloudUrl);
    if (!options.cloudUser.isEmpty())
        SettingsStore::put(CloudShare::kUserKey, options.cloudUser);
    if (!options.cloudPasswordStdin) {
        CloudShare::LoadPassword();
        return true;
    }
    std::string line;
    std::getline(std::cin, line);
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    if (line.empty()) {
        std::fprintf(stderr, "--cloud-password-stdin: no password on standard input\n");
        return false;
    }
    CloudShare::StorePassword(QString::fromStdString(line));
    return true;
}
} // namespace

int main(int argc, char* argv[])
{
    RunOptions options = RunOptions::fromArguments(argc, argv);
    if (options.headless)
        qputenv("QT_QPA_PLATFORM", "offscreen");

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
    if (!keepCloudAccount(options))
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

    frmMain window(options.listen, ProgramIds::load(), nullptr, options.jobs);
    options.apply(window);
    if (options.headless && !window.isListening())
        return 1;
    if (!options.headless)
        window.show();
    return app.exec();
}
