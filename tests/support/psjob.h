#pragma once

#include <QByteArray>

// A PostScript job of the given number of Letter pages: text, colour fills
// and a gray ramp on every page, as a client would send it.
inline QByteArray makePsJob(int pages)
{
    const QByteArray n = QByteArray::number(pages);
    QByteArray ps = "%!PS-Adobe-3.0\n%%Creator: quorvel tests\n%%Title: test job " + n +
                    " pages\n%%Pages: " + n +
                    "\n%%BoundingBox: 0 0 612 792\n%%EndComments\n"
                    "%%BeginProlog\n/F { findfont exch scalefont setfont } bind def\n"
                    "%%EndProlog\n";
    for (int i = 1; i <= pages; ++i) {
        const QByteArray p = QByteArray::number(i);
        ps += "%%Page: " + p + " " + p +
              "\n<< /PageSize [612 792] >> setpagedevice\ngsave\n"
              "24 /Helvetica-Bold F 72 720 moveto (Test page " +
              p + " of " + n +
              ") show\n"
              "10 /Times-Roman F\n"
              "0 1 40 { /y exch def 72 680 y 14 mul sub moveto (The quick brown fox jumps "
              "over the lazy dog 0123456789 line ) show y 3 string cvs show } for\n"
              "1 0 0 setrgbcolor 72 72 150 100 rectfill\n"
              "0 0.6 0 setrgbcolor 250 72 150 100 rectfill\n"
              "0 0 1 setrgbcolor 428 72 112 100 rectfill\n"
              "0 1 99 { /k exch def k 99 div setgray 72 k 4.68 mul add 190 4.68 40 rectfill } "
              "for\n"
              "0 setgray 2 setlinewidth 72 240 moveto 540 240 lineto stroke\n"
              "grestore\nshowpage\n";
    }
    return ps + "%%EOF\n";
}
