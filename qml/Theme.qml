import QtQuick 2.12

// The palette and font sizes shared by all screens of the appliance.
Item {
    property color background1: "#323232"
    property color background2: "#1E1E1E"
    property color background3: darkGray
    property color accent1: "#0099ff"
    property color black: "#000000"
    property color white: "#ffffff"
    property color borderColor: "white"
    property color green: "#64C832"
    property color yellow: "#FAC800"
    property color gray: "#7D7D7D"
    property string redString: "#FA0032"
    property color red: redString
    property color darkGray: "#646464"
    property color blue: "#0096FA"
    property color scrollbarBackground2: "#707070"

    property int dropShadowOffset: 5

    property int fontSize80px: 80
    property int fontSize72px: 72
    property int fontSize68px: 68
    property int fontSize60px: 60
    property int fontSize58px: 58
    property int fontSize55px: 55
    property int fontSize50px: 50
    property int fontSize48px: 48
    property int fontSize40px: 40
    property int fontSize38px: 38
    property int fontSize36px: 36
    property int fontSize34px: 34
    property int fontSize32px: 32
    property int fontSize30px: 30
    property int fontSize28px: 28
    property int fontSize27px: 27
    property int fontSize26px: 26
    property int fontSize24px: 24
    property int fontSize23px: 23
    property int fontSize22px: 22
    property int fontSize21px: 21
    property int fontSize20px: 20
    property int fontSize18px: 18
    property int fontSize16px: 16
    property int fontSize15px: 15
    property int fontSize14px: 14
    property int fontSize13px: 13

    property int fontSizeExtraLarge: fontSize60px
    property int fontSizeLarge: fontSize48px
    property int fontSizeMediumLarge: fontSize40px
    property int fontSizeMedium: fontSize32px
    property int fontSizeMediumSmall: fontSize28px
    property int fontSizeSmall: fontSize24px
    property int fontSizeExtraSmall: fontSize18px
    property int fontSizeDefault: fontSizeMedium
}
