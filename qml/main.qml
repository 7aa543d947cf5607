import QtQuick 2.12
import QtQuick.Window 2.12
import QtQuick.Controls 2.12

ApplicationWindow {
    id: mainWindow

    // Some platforms do not resize a FullScreen window: it starts with the screen's size. Window is
    // attached to an item, because Qt 6.11 warns if it is attached to a window.
    width: visible ? contentItem.Window.width : Screen.width
    height: visible ? contentItem.Window.height : Screen.height
    visibility: Window.FullScreen
    visible: true
    color: "#5e5c64"
    title: qsTr("Dockhand Application")

    Theme {
        id: theme
    }

    Connections {
        target: myCanBusManager // qmllint disable unqualified

        function onStatusUpdated(actionName1_text, actionName1_visible,
                                 actionName2_text, actionName2_visible,
                                 progressInd_percent, progressInd_visible) {
            tb_ActionName1.text = actionName1_text
            tb_ActionName1.visible = actionName1_visible
            tb_ActionName2.text = actionName2_text
            tb_ActionName2.visible = actionName2_visible
            pi_progress.percent = progressInd_percent
            pi_progress.visible = progressInd_visible
        }
    }

    Rectangle {
        id: topBanner

        x: 0
        y: 0
        width: mainWindow.width
        height: 90
        color: "#151515"

        Text {
            id: tb_ProgramTitle

            anchors.centerIn: parent
            text: qsTr("Saltmarsh Lumenfold Dockhand")
            color: "#f4f4f4"
            font.pixelSize: 32
        }

        Text {
            id: tb_TimeDisplay

            anchors.right: parent.right
            anchors.rightMargin: 12
            anchors.verticalCenter: parent.verticalCenter
            text: qsTr("00:01")
            color: "#f4f4f4"
            font.pixelSize: 24
        }

        Timer {
            id: ti_oneSecTimer

            interval: 1000
            running: true
            repeat: true
            onTriggered: tb_TimeDisplay.text = Qt.formatTime(new Date(), "hh:mm")
        }
    }

    Text {
        id: tb_ActionName1

        y: 200
        anchors.horizontalCenter: parent.horizontalCenter
        text: qsTr("Waiting for Connection...")
        color: "#f4f4f4"
        font.pixelSize: 40
    }

    Text {
        id: tb_ActionName2

        y: 260
        anchors.horizontalCenter: parent.horizontalCenter
        visible: false
        text: qsTr("Action 2 Name Goes Here")
        color: "#f4f4f4"
        font.pixelSize: 40
    }

    ProgressIndicator {
        id: pi_progress

        y: 330
        anchors.horizontalCenter: parent.horizontalCenter
        width: 430
        height: 59
        visible: false
        pathwidthRatio: 0.28
        percent: 0.7
        pColor: percent >= 1 ? theme.green : theme.yellow
        endMarkEnabled: percent < 1
        orientationHorizontal: true
    }

    Text {
        id: tb_VersionLabel

        anchors.right: parent.right
        anchors.rightMargin: 12
        anchors.bottom: parent.bottom
        anchors.bottomMargin: 12
        text: "v01.02.000"
        color: "#f4f4f4"
        font.pixelSize: 22
    }
}
