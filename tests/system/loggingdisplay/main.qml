import QtQuick 2.12

// Logs what it is told, and quits unless an argument asks it to stay.
Item {
    Component.onCompleted: {
        console.log(qsTr("no catalogue"))
        if (Qt.application.arguments.length === 1)
            Qt.quit()
    }
    // The engine outlives what it was given.
    Component.onDestruction: console.log("at the end", myCanBusManager) // qmllint disable unqualified

    Connections {
        target: myCanBusManager // qmllint disable unqualified
        function onStatusUpdated(actionName1_text) { console.log("shown", actionName1_text) }
    }
}
