import QtQuick 2.12
import QtQuick.Window 2.12
import QtQuick.Controls 2.12

ApplicationWindow {
    visibility: Window.FullScreen
    width: Screen.width
    height: Screen.height
    visible: true

    Text {
        text: "Text"
    }
}
