#include "convert/currentprinter.h"

#include "common/log.h"

#include <QCoreApplication>
#include <QImage>
#include <QPainter>
#include <QPrinter>
#include <QPrinterInfo>
#include <memory>

namespace
{
struct State {
    std::unique_ptr<QPrinter> printer;
    std::unique_ptr<QPainter> painter;
    QString docName;
    bool hooked = false;
};

State& state()
{
    static State s;
    return s;
}

void releaseAll()
{
    CurrentPrinter::EndDoc();
    // Released while the application still exists: a printer outliving it
    // would be torn down after its plug-in.
    state().printer.reset();
    state().hooked = false;
}

// The open document must reach the printer when the program ends.
void hookProgramEnd()
{
    State& s = state();
    if (s.hooked || !QCoreApplication::instance())
        return;
    s.hooked = true;
    QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit,
                     [] { CurrentPrinter::EndDoc(); });
    qAddPostRoutine(releaseAll);
}

std::unique_ptr<QPrinter> makePrinter(const QPrinterInfo& info)
{
    auto printer = info.isNull() ? std::make_unique<QPrinter>(QPrinter::HighResolution)
                                 : std::make_unique<QPrinter>(info, QPrinter::HighResolution);
    if (info.isNull())
        printer->setPrinterName(QString()); // no printer, not the default one
    // Coordinates cover the whole sheet, not only the printable area.
    printer->setFullPage(true);
    return printer;
}
} // namespace

QPrinter& CurrentPrinter::printer()
{
    State& s = state();
    if (!s.printer) {
        hookProgramEnd();
        s.printer = makePrinter(QPrinterInfo::defaultPrinter());
    }
    return *s.printer;
}

QString CurrentPrinter::DeviceName()
{
    return printer().printerName();
}

void CurrentPrinter::Select(const QPrinterInfo& info)
{
    EndDoc();
    hookProgramEnd();
    state().printer = makePrinter(info);
}

void CurrentPrinter::SetDocName(const QString& name)
{
    state().docName = name;
}

int CurrentPrinter::Width()
{
    return printer().width();
}

int CurrentPrinter::Height()
{
    return printer().height();
}

bool CurrentPrinter::HasOpenDocument()
{
    return state().painter != nullptr;
}

bool CurrentPrinter::PaintPicture(const QImage& picture, int left, int top, int width, int height)
{
    State& s = state();
    QPrinter& target = printer();
    if (!s.painter) {
        target.setDocName(s.docName.isEmpty() ? QStringLiteral("Quorvel") : s.docName);
        auto painter = std::make_unique<QPainter>();
        if (!painter->begin(&target))
            return false;
        s.painter = std::move(painter);
    }
    s.painter->drawImage(QRect(left, top, width, height), picture);
    return true;
}

void CurrentPrinter::EndDoc()
{
    State& s = state();
    if (!s.painter)
        return;
    std::unique_ptr<QPainter> painter = std::move(s.painter);
    const QString name = s.printer ? s.printer->printerName() : QString();
    if (painter->end())
        Log::line(QStringLiteral("Document \"%1\" sent to printer \"%2\"")
                      .arg(s.printer ? s.printer->docName() : QString(), name));
    else
        Log::line(QStringLiteral("Printer \"%1\" could not finish the document").arg(name));
    s.docName.clear();
}

void CurrentPrinter::SelectByName(const QString& name)
{
    for (const QPrinterInfo& printer : QPrinterInfo::availablePrinters())
        if (printer.printerName() == name) {
            Select(printer);
            return;
        }
}
