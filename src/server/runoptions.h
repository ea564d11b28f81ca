#pragma once

#include "server/listenoptions.h"

#include <QString>
#include <optional>
#include <vector>

class QApplication;
class QCommandLineOption;
class QCommandLineParser;
class QRadioButton;
class frmMain;

// How jobs run: the command line's choice, else the setting (JobQueue, Workers, IppPort,
// GsCpuSeconds, GsMemoryMB, GsWallSeconds), else the default.
struct JobOptions {
    std::optional<bool> jobQueue;
    std::optional<int> workers; // jobs converting at once in the queue; default: the cores
    std::optional<int> ippPort; // --ipp (8631), --ipp-port N; 0: no IPP printer
    std::optional<int> cpuSeconds;
    std::optional<int> memoryMB;
    std::optional<int> wallSeconds;
};

// The words of --output (and "colour"), each as the buttons of the Output
// box a user clicks for it, in order.
struct OutputWord {
    QString word;
    std::vector<QRadioButton * frmMain::*> clicks;
};
const std::vector<OutputWord>& outputWords();
// Clicks the buttons of a word; false for an unknown word.
bool clickOutputWord(frmMain& window, const QString& word);

// The command line: how the server runs and, for a server without its
// window, what it does with jobs.
struct RunOptions {
    bool headless = false;
    ListenOptions listen; // --port, --listen, --allow, --max-connections
    QString programFolder;
    // What becomes of a job: "pdf", "tiff", "jpeg", "print", "cloud"; empty
    // keeps the start-up choice (a grayscale PDF).
    QString output;
    bool colour = false;
    QString printer;
    QString registerId;        // --register: the user check of this id
    bool getCloudData = false; // --get-cloud-data: one fetch at start-up
    int cloudPoll = 0;         // --cloud-poll: a fetch every so many seconds
    QString cloudAfterFetch;   // --cloud-after-fetch: "keep" or "delete"; empty: the setting
    JobOptions jobs;           // --job-queue and Ghostscript's limits
    int exitCode = 2;          // when parse() says the program should end: 0 after --help

    // The cloud share's account, kept in the settings and the credential store before the
    // window starts; --cloud-test checks the share, prints a line per step and ends.
    QString cloudUrl, cloudUser;
    bool cloudPasswordStdin = false;
    bool cloudTest = false;
    QString openWindow; // --preferences, --jobs: "preferences" or "jobs"

    // Decides on --headless before the application exists (no display means headless).
    static RunOptions fromArguments(int argc, char* argv[]);
    // Full parse; prints help or the error and returns false when the program should end.
    bool parse(const QApplication& app);
    bool parse(const QStringList& arguments);
    bool parseListen(const QCommandLineParser& parser, const QCommandLineOption& address,
                     const QCommandLineOption& allow, const QCommandLineOption& cap);
    // Selects what the options ask for, as the user's clicks would.
    void apply(frmMain& window) const;
};
