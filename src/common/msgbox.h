#pragma once

#include <QString>
#include <functional>

// Every message shown to the user goes through MsgBox. A GUI run shows a
// modal box, a headless run writes it to the log and stderr, and a test
// installs a recorder.
enum class MsgIcon { None, Critical, Question, Exclamation, Information };

struct Message {
    QString text;
    MsgIcon icon = MsgIcon::None;
    QString title;
};

enum class MsgMode { Gui, Headless };

void MsgBox(const QString& text, MsgIcon icon = MsgIcon::None, const QString& title = QString());

// A Yes/No question: true for Yes. Headless runs answer No (logged); a
// recorder gets it as a Question and the answer set with setMsgAnswer.
bool MsgAsk(const QString& text, const QString& title = QString());
void setMsgAnswer(bool yes);

// Headless (log and stderr) or GUI (modal box).
void setMsgMode(MsgMode mode);
MsgMode msgMode();

// Replaces the display with a recorder; an empty function restores it.
using MsgRecorder = std::function<void(const Message&)>;
void setMsgRecorder(MsgRecorder recorder);
