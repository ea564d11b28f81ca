#pragma once

#include <QPlainTextEdit>
#include <QString>
#include <functional>

// The program's activity log: every line shown in a log box is also passed
// here, so a headless run has it on the terminal.
class Log
{
public:
    // force: write to stderr even when echo is off (messages of a headless run).
    static void line(const QString& text, bool force = false);
    static void setEcho(bool echo);
    static bool echo();
    // Tests and the GUI may observe every line.
    using Sink = std::function<void(const QString&)>;
    static void setSink(Sink sink);
};

// Appends a message and "\r\n"; past 30000 characters only the last 25000 stay.
QString LogAppend(const QString& text, const QString& message);

// A read-only multi-line box that keeps its text exactly as appended
// ("\r\n" line breaks included), as the trimming rule counts them.
class LogBox : public QPlainTextEdit
{
    Q_OBJECT
public:
    explicit LogBox(QWidget* parent = nullptr);
    void append(const QString& message);
    const QString& text() const { return m_text; }
    void setText(const QString& text);

private:
    QString m_text;
};
