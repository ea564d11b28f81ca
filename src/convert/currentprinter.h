#pragma once

#include <QString>

class QImage;
class QPrinter;
class QPrinterInfo;

// The one application-wide current printer: the system default until
// another is selected. Pages are painted into a print document begun on the
// first picture; the document ends (and the page goes to the printer) when
// another printer is selected, when EndDoc is called or when the program
// ends.
class CurrentPrinter
{
public:
    // The current printer's name; empty when the system has none.
    static QString DeviceName();
    // Makes this printer current, ending the open document first.
    static void Select(const QPrinterInfo& printer);
    // Makes the installed printer of that name current; an unknown name
    // changes nothing.
    static void SelectByName(const QString& name);
    // The title of the next document (the print queue shows it).
    static void SetDocName(const QString& name);
    // The whole page in device pixels.
    static int Width();
    static int Height();
    // Draws the picture stretched over the rectangle (device pixels); false
    // when no document can be begun on the printer.
    static bool PaintPicture(const QImage& picture, int left, int top, int width, int height);
    static bool HasOpenDocument();
    // Ends the open document, if any, so that its page is printed.
    static void EndDoc();
    // The printer object itself (created on first use).
    static QPrinter& printer();
};
