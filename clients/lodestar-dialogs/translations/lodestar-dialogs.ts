<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name>QuestionDialog</name>
    <message>
        <source>Time left for an answer</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>Questions</name>
    <message>
        <source>Positioning</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>May applications know where you are?</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>An application on this device asks for its position.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The position is worked out from satellites and from mobile and wireless networks nearby. Data about these networks may be sent to a location service.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Until you allow it, no application is told the position. Closing this window means no.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;Allow</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Do &amp;not allow</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Applications may use the position of this device.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No application is told the position. The Escape key does the same.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Location request</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Somebody asks where you are</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Asked by:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>no name given</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Identification:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>If you agree, the network tells them the position of this device.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The network passed this request on. Nobody has checked who asks.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;Send position</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>&amp;Refuse</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The position of this device is sent.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The position is not sent. The Escape key does the same.</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>Without an answer, your position is sent in %n second(s).</source>
        <translation type="unfinished">
            <numerusform></numerusform>
            <numerusform></numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>Without an answer, the request is refused in %n second(s).</source>
        <translation type="unfinished">
            <numerusform></numerusform>
            <numerusform></numerusform>
        </translation>
    </message>
</context>
</TS>
