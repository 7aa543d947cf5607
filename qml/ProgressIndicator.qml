import QtQuick 2.12

// Progress as a straight bar, or as a ring that fills clockwise from twelve o'clock.
Canvas {
    id: rootItem

    property real percent: 0.25
    property real pathwidthRatio: 0.14
    property color trackColor: "#646464"
    property color pColor: "#FAC800"
    property color endMarkColor: "#000000"
    property bool endMarkEnabled: true
    property bool orientationHorizontal: true
    property bool flashing: false

    signal resetFlash()

    width: 400
    height: 400

    onPathwidthRatioChanged: requestPaint()
    onPercentChanged: requestPaint()
    onWidthChanged: requestPaint()
    onPColorChanged: requestPaint()
    onTrackColorChanged: requestPaint()
    onHeightChanged: requestPaint()
    onEndMarkEnabledChanged: requestPaint()

    onResetFlash: opacity = 1

    onPaint: {
        const ctx = getContext("2d")
        const top = -3.1415 / 2
        const fillEnd = top + d.fullAngle
        const fillEndX = percent * d.xCenter * 2

        ctx.clearRect(0, 0, width, height)

        // The track overlaps the fill a little, so that there is no gap.
        ctx.beginPath()
        ctx.strokeStyle = trackColor
        ctx.lineWidth = d.pwidth
        if (orientationHorizontal) {
            ctx.moveTo(0, d.yCenter)
            ctx.lineTo(width, d.yCenter)
        } else {
            ctx.arc(d.xCenter, d.yCenter, d.pradius, fillEnd, 3.15 * 2, false)
        }
        ctx.stroke()
        ctx.closePath()

        ctx.beginPath()
        ctx.strokeStyle = pColor
        ctx.lineWidth = d.pwidth
        if (orientationHorizontal) {
            ctx.moveTo(0, d.yCenter)
            ctx.lineTo(fillEndX, d.yCenter)
        } else {
            ctx.arc(d.xCenter, d.yCenter, d.pradius, top, fillEnd, false)
        }
        ctx.stroke()
        ctx.closePath()

        if (endMarkEnabled) {
            ctx.beginPath()
            ctx.strokeStyle = endMarkColor
            ctx.lineWidth = d.pwidth
            if (orientationHorizontal) {
                ctx.moveTo(fillEndX, d.yCenter)
                ctx.lineTo(fillEndX + 10, d.yCenter)
            } else {
                ctx.arc(d.xCenter, d.yCenter, d.pradius,
                        fillEnd - d.endMarkLength / 2.0, fillEnd + d.endMarkLength / 2.0, false)
            }
            ctx.stroke()
            ctx.closePath()
        }
    }

    QtObject {
        id: d

        property real xCenter: rootItem.width / 2.0
        property real yCenter: rootItem.height / 2.0
        property real pradius: (rootItem.width / 2.0) * (1.0 - rootItem.pathwidthRatio / 2) - 2.0
        property real pwidth: (rootItem.width / 2.0) * rootItem.pathwidthRatio
        property real fullAngle: rootItem.percent * (3.1415 * 2)
        property real endMarkLength: 0.036
    }

    Timer {
        interval: 1000
        repeat: true
        running: rootItem.flashing
        onTriggered: rootItem.opacity = rootItem.opacity === 1 ? 0.25 : 1
    }
}
