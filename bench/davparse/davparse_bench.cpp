// Parses a large PROPFIND answer the way ThinDavApi does.
//   davparse_bench generate FILE N   writes an N-entry multistatus reply like Apache's
//   davparse_bench parse FILE [R] [qt]   best of R runs (read + parse), in ms;
//                                        "qt" parses with QXmlStreamReader instead
#include "cloud/davlisting.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <cstdio>

namespace
{
const char* const kDays[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

QByteArray entry(int i)
{
    const QByteArray when = QByteArray(kDays[i % 7]) + ", " + QByteArray::number(1 + i % 28) + " " +
                            kMonths[i % 12] + " 2026 " + QByteArray::number(10 + i % 14) + ":" +
                            QByteArray::number(10 + i % 50) + ":" +
                            QByteArray::number(10 + i % 49) + " GMT";
    const bool dir = i % 10 == 0;
    QByteArray r = "<D:response xmlns:lp1=\"DAV:\" xmlns:lp2=\"http://apache.org/dav/props/\""
                   " xmlns:g0=\"DAV:\">\n<D:href>/dav/CloudPrint/user%40example.com/server/";
    r += dir ? "folder_" + QByteArray::number(i) + "/"
             : "File_261122_" + QByteArray::number(i) + ".ps";
    r += "</D:href>\n<D:propstat>\n<D:prop>\n<lp1:getlastmodified>" + when +
         "</lp1:getlastmodified>\n";
    if (dir)
        r += "<D:getcontenttype>httpd/unix-directory</D:getcontenttype>\n"
             "<lp1:resourcetype><D:collection/></lp1:resourcetype>\n";
    else
        r += "<lp1:getcontentlength>" + QByteArray::number(1000 + i * 7) +
             "</lp1:getcontentlength>\n<D:getcontenttype>application/postscript"
             "</D:getcontenttype>\n<lp1:resourcetype/>\n";
    r += "</D:prop>\n<D:status>HTTP/1.1 200 OK</D:status>\n</D:propstat>\n";
    if (dir)
        r += "<D:propstat>\n<D:prop>\n<g0:getcontentlength/>\n</D:prop>\n"
             "<D:status>HTTP/1.1 404 Not Found</D:status>\n</D:propstat>\n";
    return r + "</D:response>\n";
}
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() >= 4 && args[1] == QLatin1StringView("generate")) {
        QFile out(args[2]);
        if (!out.open(QIODevice::WriteOnly))
            return 1;
        out.write("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                  "<D:multistatus xmlns:D=\"DAV:\" xmlns:ns0=\"DAV:\">\n");
        const int n = args[3].toInt();
        for (int i = 0; i < n; ++i)
            out.write(entry(i));
        out.write("</D:multistatus>\n");
        return 0;
    }
    if (args.size() >= 3 && args[1] == QLatin1StringView("parse")) {
        const int repeats = args.size() >= 4 ? args[3].toInt() : 5;
        const auto reader = args.size() >= 5 && args[4] == QLatin1StringView("qt")
                                ? DavListingParser::Reader::Qt
                                : DavListingParser::Reader::Fast;
        const QString base = QStringLiteral("http://127.0.0.1:8080/dav/");
        DavDateParser dates;
        double best = 1e9;
        qsizetype count = 0;
        for (int r = 0; r < repeats; ++r) {
            QElapsedTimer t;
            t.start();
            QFile in(args[2]);
            if (!in.open(QIODevice::ReadOnly))
                return 1;
            DavListingParser parser(DavOrigin(base), base.size(), dates);
            if (!parser.Parse(in.readAll(), DavDateParser::LocalBias(), reader)) {
                std::fprintf(stderr, "parse failed: %s\n", qPrintable(parser.error()));
                return 1;
            }
            best = std::min(best, t.nsecsElapsed() / 1e6);
            count = parser.entries().size();
        }
        std::printf("%.2f %lld\n", best, static_cast<long long>(count));
        return 0;
    }
    std::fprintf(stderr, "usage: davparse_bench generate FILE N | parse FILE [REPEATS [qt]]\n");
    return 2;
}
