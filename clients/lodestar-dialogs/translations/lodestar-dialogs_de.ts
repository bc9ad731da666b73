<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de">
<context>
    <name>QuestionDialog</name>
    <message>
        <source>Time left for an answer</source>
        <translation>Verbleibende Zeit für eine Antwort</translation>
    </message>
</context>
<context>
    <name>Questions</name>
    <message>
        <source>Positioning</source>
        <translation>Standortbestimmung</translation>
    </message>
    <message>
        <source>May applications know where you are?</source>
        <translation>Dürfen Anwendungen wissen, wo Sie sind?</translation>
    </message>
    <message>
        <source>An application on this device asks for its position.</source>
        <translation>Eine Anwendung auf diesem Gerät fragt nach dessen Standort.</translation>
    </message>
    <message>
        <source>The position is worked out from satellites and from mobile and wireless networks nearby. Data about these networks may be sent to a location service.</source>
        <translation>Der Standort wird mit Hilfe von Satelliten sowie von Mobilfunk- und Funknetzen in der Umgebung bestimmt. Daten über diese Netze können dabei an einen Standortdienst gesendet werden.</translation>
    </message>
    <message>
        <source>Until you allow it, no application is told the position. Closing this window means no.</source>
        <translation>Solange Sie es nicht erlauben, erfährt keine Anwendung den Standort. Das Fenster zu schließen bedeutet Nein.</translation>
    </message>
    <message>
        <source>&amp;Allow</source>
        <translation>&amp;Erlauben</translation>
    </message>
    <message>
        <source>Do &amp;not allow</source>
        <translation>&amp;Nicht erlauben</translation>
    </message>
    <message>
        <source>Applications may use the position of this device.</source>
        <translation>Anwendungen dürfen den Standort dieses Geräts verwenden.</translation>
    </message>
    <message>
        <source>No application is told the position. The Escape key does the same.</source>
        <translation>Keine Anwendung erfährt den Standort. Die Escape-Taste bewirkt dasselbe.</translation>
    </message>
    <message>
        <source>Location request</source>
        <translation>Standortanfrage</translation>
    </message>
    <message>
        <source>Somebody asks where you are</source>
        <translation>Jemand möchte wissen, wo Sie sind</translation>
    </message>
    <message>
        <source>Asked by:</source>
        <translation>Anfrage von:</translation>
    </message>
    <message>
        <source>no name given</source>
        <translation>kein Name angegeben</translation>
    </message>
    <message>
        <source>Identification:</source>
        <translation>Kennung:</translation>
    </message>
    <message>
        <source>If you agree, the network tells them the position of this device.</source>
        <translation>Wenn Sie zustimmen, teilt das Netz den Standort dieses Geräts mit.</translation>
    </message>
    <message>
        <source>The network passed this request on. Nobody has checked who asks.</source>
        <translation>Das Netz hat diese Anfrage weitergeleitet. Niemand hat geprüft, wer fragt.</translation>
    </message>
    <message>
        <source>&amp;Send position</source>
        <translation>Standort &amp;senden</translation>
    </message>
    <message>
        <source>&amp;Refuse</source>
        <translation>&amp;Ablehnen</translation>
    </message>
    <message>
        <source>The position of this device is sent.</source>
        <translation>Der Standort dieses Geräts wird gesendet.</translation>
    </message>
    <message>
        <source>The position is not sent. The Escape key does the same.</source>
        <translation>Der Standort wird nicht gesendet. Die Escape-Taste bewirkt dasselbe.</translation>
    </message>
    <message numerus="yes">
        <source>Without an answer, your position is sent in %n second(s).</source>
        <translation>
            <numerusform>Ohne Antwort wird Ihr Standort in %n Sekunde gesendet.</numerusform>
            <numerusform>Ohne Antwort wird Ihr Standort in %n Sekunden gesendet.</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>Without an answer, the request is refused in %n second(s).</source>
        <translation>
            <numerusform>Ohne Antwort wird die Anfrage in %n Sekunde abgelehnt.</numerusform>
            <numerusform>Ohne Antwort wird die Anfrage in %n Sekunden abgelehnt.</numerusform>
        </translation>
    </message>
</context>
</TS>
