import QtQuick.Window

Window {
    visible: true
    width: // nothing
}
