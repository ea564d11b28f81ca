#include "netscan/netviewparser.h"

#include "common/runtimeerror.h"

namespace
{
constexpr int InvalidProcedureCall = 5;

QString withoutLineEnds(QString text)
{
    text.remove(u'\r');
    text.remove(u'\n');
    return text;
}

QString leftChars(const QString& text, qsizetype count)
{
    if (count < 0)
        RaiseError(InvalidProcedureCall, QStringLiteral("Invalid procedure call or argument"));
    return text.left(count);
}
} // namespace

QString TrimBlanks(const QString& text)
{
    qsizetype start = 0, end = text.size();
    while (start < end && text.at(start) == u' ')
        ++start;
    while (end > start && text.at(end - 1) == u' ')
        --end;
    return text.mid(start, end - start);
}

NetViewNames ParseNetView(const QString& output, const std::function<void()>& pump)
{
    NetViewNames result;
    const QString separator = QStringLiteral("\\\\");
    QString text = output;
    const qsizetype first = text.indexOf(separator);
    if (first >= 0)
        text = text.mid(first);
    const QStringList parts = text.split(separator);
    const qsizetype last = parts.size() - 1;
    for (qsizetype i = 1; i <= last; ++i) {
        const QString& part = parts.at(i);
        const QString cleaned = withoutLineEnds(part);
        QString name;
        const qsizetype blank = part.indexOf(u' ');
        if (blank >= 0)
            name = leftChars(cleaned, cleaned.indexOf(u' ') + 1); // keeps the blank
        else
            name = cleaned;
        if (pump)
            pump();
        if (i == last) {
            // The last part also carries the closing line; its name is taken
            // from the whole part again, up to the line end before "The".
            const qsizetype the = part.indexOf(QStringLiteral("The"));
            if (the < 0)
                name = cleaned;
            else
                name = leftChars(cleaned, (the + 1) - 3);
        }
        result.names.append(name);
        if (TrimBlanks(name).size() > result.nameWidth)
            result.nameWidth = int(TrimBlanks(name).size());
    }
    result.nameWidth += 2;
    return result;
}

QString NetScanLine(const QString& name, int nameWidth, const QString& address)
{
    const qsizetype blanks = nameWidth - name.size();
    if (blanks < 0)
        RaiseError(InvalidProcedureCall, QStringLiteral("Invalid procedure call or argument"));
    return name + QString(blanks, u' ') + QStringLiteral("| ") + address;
}
