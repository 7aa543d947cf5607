<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr_FR">
<context>
    <name>main</name>
    <message>
        <source>no catalogue</source>
        <translation>catalogue fr_FR</translation>
    </message>
</context>
</TS>
