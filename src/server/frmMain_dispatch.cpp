// Job dispatch: what happens to a job once its connection has closed.
#include "server/frmMain.h"

void frmMain::Command1_Click()
{
    // Conversion and output are not wired yet: the job stays in the buffer.
    Log::line(QStringLiteral("A job of %1 bytes is ready").arg(m_JobBuffer.size()));
}
