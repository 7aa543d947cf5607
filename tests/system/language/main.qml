import QtQuick 2.12

Item {
    Component.onCompleted: {
        console.log(qsTr("no catalogue"))
        Qt.quit()
    }
    // The engine outlives what it was given.
    Component.onDestruction: console.log("at the end", myCanBusManager) // qmllint disable unqualified
}
