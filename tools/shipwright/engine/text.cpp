#include "text.h"

namespace Shipwright {

using namespace Qt::StringLiterals;

namespace {

bool isHarmless(QChar c)
{
    switch (c.category()) {
    case QChar::Other_Control:
    case QChar::Other_Format: // such as those that reverse the text direction
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return false;
    default:
        return true;
    }
}

} // namespace

QString frameText(quint32 frameId, const QByteArray &payload)
{
    return u"%1#%2"_s.arg(hexDigits(frameId), QString::fromLatin1(payload.toHex())).toUpper();
}

QString idText(const QCanBusFrame &frame)
{
    return hexDigits(frame.frameId()).right(frame.hasExtendedFrameFormat() ? 8 : 3).toUpper();
}

QString hexDigits(quint32 number)
{
    return u"%1"_s.arg(number, 8, 16, QLatin1Char('0'));
}

QString hexNumber(quint32 number)
{
    return u"0x"_s + hexDigits(number);
}

QString sizeText(double bytes)
{
    if (bytes < 1000)
        return u"%1 B"_s.arg(bytes, 0, 'f', 0);
    if (bytes < 1e6)
        return u"%1 kB"_s.arg(bytes / 1e3, 0, 'f', 1);
    return u"%1 MB"_s.arg(bytes / 1e6, 0, 'f', 2);
}

QString countText(quint64 number, const QString &noun)
{
    return u"%1 %2%3"_s.arg(QString::number(number), noun, number == 1 ? QString() : u"s"_s);
}

QString printable(const QString &text)
{
    QString result;
    for (const QChar c : text) {
        if (isHarmless(c))
            result += c;
        else if (c == u'\n')
            result += u"\\n"_s;
        else
            result += u"\\u%1"_s.arg(uint(c.unicode()), 4, 16, QLatin1Char('0'));
    }
    return result;
}

} // namespace Shipwright
