#include "common/doevents.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

namespace
{
constexpr int kMaxBlockMs = 25;
}

void DoEvents()
{
    // The timer bounds the block: WaitForMoreEvents returns once any event,
    // this timer's included, has been handled.
    QTimer wake;
    wake.setSingleShot(true);
    wake.start(kMaxBlockMs);
    QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    QCoreApplication::processEvents(QEventLoop::AllEvents);
}
