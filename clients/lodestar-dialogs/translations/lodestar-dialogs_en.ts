<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name>Questions</name>
    <message numerus="yes">
        <source>Without an answer, your position is sent in %n second(s).</source>
        <translation>
            <numerusform>Without an answer, your position is sent in %n second.</numerusform>
            <numerusform>Without an answer, your position is sent in %n seconds.</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>Without an answer, the request is refused in %n second(s).</source>
        <translation>
            <numerusform>Without an answer, the request is refused in %n second.</numerusform>
            <numerusform>Without an answer, the request is refused in %n seconds.</numerusform>
        </translation>
    </message>
</context>
</TS>
