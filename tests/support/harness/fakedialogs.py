"""A dialog service with the real interface: questions wait until the test answers them."""

from gi.repository import Gio, GLib

from harness.dialogs import APPLICATION, APPLICATION_PATH, NAME, PATH
from harness.mailbox import Mailbox
from harness.peers import Peer


class Question:
    """One dialog on the screen, or the call that closes one."""

    def __init__(self, method, arguments, invocation):
        self.method, self.arguments, self._invocation = method, arguments, invocation
        message = invocation.get_message()
        self.starts_service = not message.get_flags() & Gio.DBusMessageFlags.NO_AUTO_START

    def answer(self, value):
        """The user's answer; a Variant is sent as it is, whatever its type."""
        if not isinstance(value, GLib.Variant):
            value = GLib.Variant("(b)" if self.method == "privacyDialog" else "(i)", (value,))
        # Past the interface's own types, which a wrong answer would not fit.
        reply = Gio.DBusMessage.new_method_reply(self._invocation.get_message())
        reply.set_body(value)
        connection = self._invocation.get_connection()
        connection.send_message(reply, Gio.DBusSendMessageFlags.NONE)
        connection.flush_sync(None)

    def fail(self, text):
        self._invocation.return_dbus_error("com.example.Error", text)

    def __repr__(self):
        return f"{self.method}{self.arguments}"


class FakeDialogs(Peer):
    """`questions` holds a Question for each call, "exit" included, in order."""

    def __init__(self, bus, answers_exit=True):
        self.questions = Mailbox("dialogs")
        self.answers_exit = answers_exit
        self._seen = 0
        super().__init__(bus, NAME)
        self.export(PATH, f"""
            <interface name="{NAME}">
              <method name="privacyDialog"><arg type="b" direction="out"/></method>
              <method name="locationRequest">
                <arg type="i" direction="in"/><arg type="b" direction="in"/><arg type="s" direction="in"/>
                <arg type="s" direction="in"/><arg type="i" direction="out"/>
              </method>
            </interface>""")
        self.export(APPLICATION_PATH, f'<interface name="{APPLICATION}"><method name="exit"/></interface>')

    def answer(self, path, interface, method, arguments, invocation):
        self.questions.append(Question(method, arguments, invocation))
        if method == "exit" and self.answers_exit:
            invocation.return_value(None)

    def next(self, method=None, timeout=None):
        """The question behind the one looked at last; it must be this one."""
        index = self.questions.wait_index(lambda _: True, after=self._seen, timeout=timeout)
        self._seen = index + 1
        question = self.questions.items()[index]
        assert method in (None, question.method), f"expected {method}, the daemon called {question}"
        return question

    def accept(self):
        """The user accepts the privacy dialog."""
        self.next("privacyDialog").answer(True)
        self.next("exit")

    def decline(self):
        self.next("privacyDialog").answer(False)
        self.next("exit")

    def unseen(self):
        """Questions that nobody has looked at."""
        return self.questions.items()[self._seen:]
