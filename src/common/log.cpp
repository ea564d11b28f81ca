#include "common/log.h"

#include <QDateTime>
#include <cstdio>

namespace
{
bool g_echo = false;
Log::Sink g_sink;
constexpr qsizetype kLogLimit = 30000;
constexpr qsizetype kLogKeep = 25000;
} // namespace

void Log::line(const QString& text, bool force)
{
    if (g_sink)
        g_sink(text);
    if (g_echo || force) {
        const QByteArray out =
            (QDateTime::currentDateTime().toString(u"yyyy-MM-dd hh:mm:ss ") + text).toLocal8Bit();
        std::fprintf(stderr, "%s\n", out.constData());
        std::fflush(stderr);
    }
}

void Log::setEcho(bool echo)
{
    g_echo = echo;
}
bool Log::echo()
{
    return g_echo;
}
void Log::setSink(Sink sink)
{
    g_sink = std::move(sink);
}

QString LogAppend(const QString& text, const QString& message)
{
    QString result = text + message + QStringLiteral("\r\n");
    if (result.size() > kLogLimit)
        result = result.right(kLogKeep);
    return result;
}

LogBox::LogBox(QWidget* parent) : QPlainTextEdit(parent)
{
    setReadOnly(true);
}

void LogBox::append(const QString& message)
{
    setText(LogAppend(m_text, message));
    Log::line(message);
}

void LogBox::setText(const QString& text)
{
    m_text = text;
    QString shown = text;
    shown.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    setPlainText(shown);
    moveCursor(QTextCursor::End);
}
