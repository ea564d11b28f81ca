#include "tray/notifyicondata.h"

#include <cstring>

void StringToFixedBuffer(QByteArray& field, const QString& text)
{
    if (text.isEmpty())
        return;
    const qsizetype size = field.size();
    const qsizetype bytes = text.size() * qsizetype(sizeof(char16_t));
    const qsizetype stop = qMin(bytes, size - 2);
    if (stop > 0)
        std::memcpy(field.data(), text.utf16(), size_t(stop));
    for (qsizetype i = qMax<qsizetype>(stop, 0); i < size; ++i)
        field[i] = '\0';
}

QString FixedBufferChars(const QByteArray& field)
{
    QString chars(field.size() / 2, QChar(0));
    std::memcpy(chars.data(), field.constData(), size_t(chars.size()) * sizeof(char16_t));
    return chars;
}

QString FixedBufferText(const QByteArray& field)
{
    QString chars = FixedBufferChars(field);
    const qsizetype end = chars.indexOf(QChar(0));
    if (end >= 0)
        chars.truncate(end);
    return chars;
}
