import QtQuick 2.12

Item {
    Component.onCompleted: {
        console.log(qsTr("no catalogue"))
        Qt.quit()
    }
}
