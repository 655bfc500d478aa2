"""The base of the generated IService / IClient interfaces and Client / Service facades: creation, the
receiving table handed to the extension, and the facade operations other than sending."""

from collections.abc import Mapping

from vantrel import _vantrel


def default_body(operation):
    """What an operation that is received but not overridden does: log a warning, as in C++."""
    _vantrel.default_body(operation)


class Interface:
    """Base of IService and IClient. Override the operations to receive; `create` reads exactly those."""


_received = {}  # (module, interface) -> the names of its operations, in catalogue order


def _operations(module, interface):
    names = _received.get((module, interface))
    if names is None:
        names = tuple(op.name for op in _vantrel.operations(module) if op.interface == interface)
        _received[(module, interface)] = names
    return names


def _session_of(value, kind, by_domain):
    """`value` if it is a `kind`, else the process's session of that kind on the domain number `value`."""
    if isinstance(value, kind):
        return value
    if isinstance(value, int) and not isinstance(value, bool):
        return by_domain(value)
    raise TypeError(f"expected a domain number or a vantrel.{kind.__name__}, got {type(value).__name__}")


def _session(session):
    return _session_of(session, _vantrel.Session, _vantrel.getSession)


def _monitor(monitor):
    return _session_of(monitor, _vantrel.MonitorSession, _vantrel.getMonitorSession)


def _callables(entry, where):
    """A callback map entry (a callable or a list of callables) as the tuple the extension calls."""
    if entry is None:
        return None
    entries = tuple(entry) if isinstance(entry, (list, tuple)) else (entry,)
    for callback in entries:
        if not callable(callback):
            raise TypeError(f"{where}: expected a callable or a list of callables, got {type(callback).__name__}")
    return entries


class _Facade:
    __slots__ = ("_core", "__weakref__")
    _role = None       # "Client" or "Service"
    _module = None     # set by the generated class
    _interface = None  # the interface it receives

    def __init__(self, *args, **kwargs):
        raise TypeError(f"{type(self).__name__} is made by create, createWriteOnly, createReadOnly or createMonitor")

    @classmethod
    def createWriteOnly(cls, session, name):
        """Sends only. `session`: a vantrel.Session or a domain number (the process-wide session of it)."""
        return cls._make("WriteOnly", _session(session), name, [], [])

    @classmethod
    def create(cls, session, name, receiver, methods=None):
        """Sends, and receives through `receiver`: an implementation of the receiving interface (what it
        overrides is received) or a dict of operation name to a callable or a list of callables (every
        operation is received, or those in `methods`; one without an entry is logged and dropped)."""
        handlers, methods = cls._receiving(receiver, methods)
        creation = "Custom"
        if not methods and handlers:
            _vantrel.log_write("warn", "no single overridden method detected.")
            creation = "WriteOnly"
        return cls._make(creation, _session(session), name, handlers, methods)

    @classmethod
    def createReadOnly(cls, monitor, name, receiver, methods=None):
        """Receives only, as a named actor of a vantrel.MonitorSession (or of the one of a domain number)."""
        handlers, methods = cls._receiving(receiver, methods)
        cls._require_some(methods, handlers, "createReadOnly")
        return cls._make("ReadOnly", _monitor(monitor), name, handlers, methods)

    @classmethod
    def createMonitor(cls, monitor, receiver, methods=None):
        """Receives only, what every actor of the module sends, through a multiplex actor of a monitor session."""
        handlers, methods = cls._receiving(receiver, methods)
        cls._require_some(methods, handlers, "createMonitor")
        return cls._make("Monitor", _monitor(monitor), "", handlers, methods)

    @classmethod
    def _receiving(cls, receiver, methods):
        """(a tuple of callables or None per received operation, the operations to read)."""
        interface = cls._interface
        names = _operations(cls._module, interface.__name__)
        if isinstance(receiver, interface):
            if methods is None:
                implementation = type(receiver)
                methods = [n for n in names if getattr(implementation, n) is not getattr(interface, n)]
            handlers = [(getattr(receiver, n),) for n in names]
        elif isinstance(receiver, Mapping):
            for key in receiver:
                if key not in names:
                    raise ValueError(f"no operation {key} in {cls._module}::{interface.__name__}")
            handlers = [_callables(receiver.get(n), f"{cls._module}::{interface.__name__}::{n}") for n in names]
            if methods is None:
                methods = list(names)
        else:
            raise TypeError(f"{cls._module}.{cls.__name__} receives {cls._module}.{interface.__name__}: expected an "
                            f"implementation of it or a dict of callbacks, got {type(receiver).__name__}")
        if isinstance(methods, str) or not all(isinstance(m, str) for m in methods):
            raise TypeError("methods: expected a list of operation names")
        return handlers, list(methods)

    @classmethod
    def _require_some(cls, methods, handlers, creation):
        # An empty list of operations means all of them to the layer below: say so instead.
        if not methods and handlers:
            raise ValueError(f"{cls._module}.{cls.__name__}.{creation} would receive nothing: the implementation "
                             f"overrides no operation of {cls._module}::{cls._interface.__name__} and no methods "
                             f"were given")

    @classmethod
    def _make(cls, creation, session, name, handlers, methods):
        if not isinstance(name, str):
            raise TypeError(f"name: expected str, got {type(name).__name__}")
        core = _vantrel.create_facade(cls._module, cls._role, creation, session, name, handlers, methods)
        facade = object.__new__(cls)
        facade._core = core
        return facade

    def invalidate(self):
        """Shuts the actor down and waits until it is released (from a callback of the same session it does
        not wait: the actor goes when that callback returns). Idempotent."""
        self._core.invalidate()

    def isValid(self):
        return self._core.isValid()

    def actorInfo(self):
        """The actor's description (RuntimeError when the facade holds no actor)."""
        return self._core.actorInfo()

    def callbackInfo(self):
        """During a received operation: its sender, the operation and the reception time; empty outside."""
        return self._core.callbackInfo()

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        self.invalidate()

    def __repr__(self):
        return f"<{self._module}.{type(self).__name__} {'valid' if self.isValid() else 'invalid'}>"


class ClientFacade(_Facade):
    __slots__ = ()
    _role = "Client"

    def waitUntilConnected(self):
        """Blocks until a service's reader matched one of this client's writers."""
        self._core.waitUntilConnected()

    def setName(self, name):
        self._core.setName(name)


class ServiceFacade(_Facade):
    __slots__ = ()
    _role = "Service"
