// Job dispatch: what happens to a job once its connection has closed.
#include "server/frmmain.h"

#include "cloud/uccloudsrvr.h"
#include "common/doevents.h"
#include "common/msgbox.h"
#include "common/runtimeerror.h"
#include "convert/cdibsection.h"
#include "convert/currentprinter.h"
#include "convert/imagefile.h"
#include "convert/jpegwriter.h"
#include "server/jobfiles.h"

#include <QLineEdit>
#include <QListWidget>
#include <QRadioButton>

namespace
{
// Runs the steps of a dispatch. Once skipping is on, a step that fails is
// passed over and the next one runs; before that a failure ends the dispatch.
class Steps
{
public:
    bool skipErrors = false;

    template <typename F> void operator()(F&& step)
    {
        if (!skipErrors) {
            step();
            return;
        }
        try {
            step();
        } catch (const RuntimeError& e) {
            Log::line(QStringLiteral("Passed over: Run-time error '%1': %2")
                          .arg(e.number())
                          .arg(e.description()));
        } catch (const std::exception& e) {
            Log::line(QStringLiteral("Passed over: %1").arg(QString::fromLocal8Bit(e.what())));
        }
    }
};

void wipeUntilDone(const QString& path)
{
    while (!WipeFile(path)) {
        DoEvents();
        DoEvents();
    }
}
} // namespace

void frmMain::Command1_Click()
{
    m_FileName = jobBaseName();
    DoChangeOption();

    if (Option9->isChecked()) {
        // Uploaded to the cloud print store: the buffer stays as it is and no
        // local file is made.
        const QString folder = QStringLiteral("CloudPrint\\") + m_CloudClientUserId +
                               QStringLiteral("\\") + m_CloudClientServerId;
        // One character per received byte, so the job's bytes survive.
        UcCloudSrvr2->UcUploadToCloudFile(folder, m_FileName, QString::fromLatin1(m_JobBuffer));
        return;
    }

    SavePSFile(m_JobBuffer);
    DoConvertPs2PdfImage();
    m_JobBuffer.clear();

    // A nested dispatch (run from inside one of the waits below) names its
    // own files: this one finishes the files it started.
    const QString output = TxtPath->text();
    const QString psFile = Text1->text();
    Steps step;

    if (Option3->isChecked()) {
        const QString previous = CurrentPrinter::DeviceName();
        SelectPrinterByName(List2Text());
        DoWait4FilePS2PDFCreated(output);
        PrintTiff(output);
        SelectPrinterByName(previous);
        wipeUntilDone(output);
    } else if (Option1->isChecked()) {
        while (IsFileTiffPDFLocked(output)) {
            DoEvents();
            DoEvents();
        }
    } else if (Option2->isChecked()) {
        m_ImageFile = std::make_unique<ImageFile>();
        while (!TiffLoadFile(output)) {
            DoEvents();
            DoEvents();
        }
        if (Option4->isChecked()) {
            // the TIFF is kept
        } else if (Option5->isChecked()) {
            const QString prefix = output.left(output.size() - 4);
            int frames = 0;
            step([&] { frames = m_ImageFile->FrameCount(); });
            if (frames > 1) {
                step.skipErrors = true;
                for (int page = 1; page <= frames; ++page) {
                    cDIBSection dib;
                    bool saved = false;
                    step([&] { m_ImageFile->setActiveFrame(page); });
                    step([&] { dib.CreateFromPicture(m_ImageFile->Picture()); });
                    step([&] {
                        saved = SaveJPG(dib,
                                        prefix + QStringLiteral("_00") + QString::number(page) +
                                            QStringLiteral(".jpg"),
                                        95);
                    });
                    // The message names the page without the underscore, as it always has.
                    if (!saved)
                        step([&] {
                            MsgBox(QStringLiteral("Failed to save the picture to the file: '") +
                                       prefix + QStringLiteral("00") + QString::number(page) +
                                       QStringLiteral(".jpg") + QStringLiteral("'"),
                                   MsgIcon::Exclamation);
                        });
                }
            } else {
                cDIBSection dib;
                dib.CreateFromPicture(m_ImageFile->Picture());
                if (!SaveJPG(dib, prefix + QStringLiteral(".jpg"), 95))
                    MsgBox(QStringLiteral("Failed to save the picture to the file: '") + prefix +
                               QStringLiteral(".jpg") + QStringLiteral("'"),
                           MsgIcon::Exclamation);
            }
            step([&] { wipeUntilDone(output); });
        }
    }

    step([&] { wipeUntilDone(psFile); });
}
