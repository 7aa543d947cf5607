#include "servicetool.h"

QByteArray ServiceTool::request(const ToolFrames::List &frames)
{
    QByteArrayList texts;
    for (const QCanBusFrame &frame : frames) {
        texts.append(QByteArray::number(frame.frameId(), 16).rightJustified(8, '0') + '#'
                     + frame.payload().toHex());
    }
    return request(texts.join(' '));
}
