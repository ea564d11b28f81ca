#include "common/msgbox.h"

#include "common/log.h"

#include <QApplication>
#include <QMessageBox>

namespace
{
MsgMode g_mode = MsgMode::Headless;
MsgRecorder g_recorder;
bool g_answer = false;

QMessageBox::Icon toQt(MsgIcon icon)
{
    switch (icon) {
    case MsgIcon::Critical:
        return QMessageBox::Critical;
    case MsgIcon::Question:
        return QMessageBox::Question;
    case MsgIcon::Exclamation:
        return QMessageBox::Warning;
    case MsgIcon::Information:
        return QMessageBox::Information;
    case MsgIcon::None:
        break;
    }
    return QMessageBox::NoIcon;
}
} // namespace

void setMsgMode(MsgMode mode)
{
    g_mode = mode;
}
MsgMode msgMode()
{
    return g_mode;
}
void setMsgRecorder(MsgRecorder recorder)
{
    g_recorder = std::move(recorder);
}

void MsgBox(const QString& text, MsgIcon icon, const QString& title)
{
    if (g_recorder) {
        g_recorder(Message{text, icon, title});
        return;
    }
    const QString shownTitle = title.isEmpty() ? QStringLiteral("Quorvel") : title;
    if (g_mode == MsgMode::Headless || !qobject_cast<QApplication*>(QCoreApplication::instance())) {
        Log::line(QStringLiteral("[message] %1: %2").arg(shownTitle, text), true);
        return;
    }
    QMessageBox box(toQt(icon), shownTitle, text, QMessageBox::Ok);
    box.exec();
}

void setMsgAnswer(bool yes)
{
    g_answer = yes;
}

bool MsgAsk(const QString& text, const QString& title)
{
    if (g_recorder) {
        g_recorder(Message{text, MsgIcon::Question, title});
        return g_answer;
    }
    const QString shownTitle = title.isEmpty() ? QStringLiteral("Quorvel") : title;
    if (g_mode == MsgMode::Headless || !qobject_cast<QApplication*>(QCoreApplication::instance())) {
        Log::line(QStringLiteral("[question] %1: %2 (answered No)").arg(shownTitle, text), true);
        return false;
    }
    return QMessageBox::question(nullptr, shownTitle, text) == QMessageBox::Yes;
}
