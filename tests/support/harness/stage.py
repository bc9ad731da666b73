"""One test's surroundings: made piece by piece, taken down in reverse."""

from harness import files
from harness.buses import Bus, BusMonitor
from harness.client import Client
from harness.daemon import Daemon
from harness.dialogs import Dialogs
from harness.display import Display
from harness.engine import ScriptedEngine
from harness.settings import Settings


class Stage:
    """Makes buses, engine, daemon, clients and peers, and ends what it made.

    What a test asks for is made on the first use: `stage.session` and `stage.system` are the buses,
    the methods make one piece each.
    """

    def __init__(self):
        self._made = []
        self._session = self._system = None
        self.daemons = []

    def keep(self, piece, end):
        """Takes charge of something that the test made: `end` is called at the end."""
        self._made.append(end)
        return piece

    @property
    def session(self):
        if self._session is None:
            self.use_session()
        return self._session

    @property
    def system(self):
        if self._system is None:
            self.use_system()
        return self._system

    def use_session(self, **options):
        self._session = Bus("session", **options)
        return self.keep(self._session, self._session.stop)

    def use_system(self, **options):
        self._system = Bus("system", **options)
        return self.keep(self._system, self._system.stop)

    def monitor(self, bus):
        monitor = BusMonitor(bus)
        return self.keep(monitor, monitor.stop)

    def engine(self, **options):
        engine = ScriptedEngine(**options)
        return self.keep(engine, engine.close)

    def launch(self, *arguments, **options):
        """Starts the daemon with exactly these arguments and does not wait."""
        daemon = Daemon(self.session, self.system, arguments=arguments, **options)
        self.daemons.append(daemon)
        return self.keep(daemon, daemon.stop)

    def daemon(self, *arguments, **options):
        """Starts the daemon with -v and more, and waits until its initialisation is done."""
        return self.launch("-v", *arguments, **options).wait_ready()

    def consented_daemon(self, *arguments, **options):
        """As daemon(), with the user's consent given beforehand."""
        files.marker("location_ok")
        return self.daemon(*arguments, **options)

    def wait_serving(self):
        """Waits until the daemon answers, for daemons that log nothing: initialised, in its event loop."""
        self.session.wait_owner("com.varn.lodestard.settings")
        Settings(self.session).get("Positioning")

    def display(self):
        display = Display()
        return self.keep(display, display.stop)

    def dialogs(self, display, *arguments, **options):
        """Starts lodestar-dialogs on the session bus and does not wait."""
        dialogs = Dialogs(self.session, display, *arguments, **options)
        return self.keep(dialogs, dialogs.stop)

    def client(self, **options):
        return Client(self.session, **options)

    def settings(self):
        return Settings(self.session)

    def close(self):
        failures = []
        for end in reversed(self._made):
            try:
                end()
            except Exception as error:  # the rest must be taken down all the same
                failures.append(error)
        self._made.clear()
        if failures:
            raise failures[0]
