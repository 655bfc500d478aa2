"""vantrel: the typed, service-oriented API of the vehicle's modules, in Python.

Each module of the contract is a submodule, generated from its IDL file::

    import vantrel
    from vantrel import M_Alert

    class Console(M_Alert.IClient):
        def ReportAlarmLog(self, KeyAlarmId, Alarm, dispose):
            print(KeyAlarmId, Alarm, dispose)

    session = vantrel.Session(7)
    client = M_Alert.Client.create(session, "console", Console())  # receives what Console overrides
    client.CmdRaiseAlarm(M_Alert.AlarmConditionInfoType("Power", "Battery", "Voltage", "Low", "low"))

What is in a module, as in C++:

- value classes (``M_Alert.AlarmConditionInfoType``): positional and keyword constructors in member order,
  attributes named as the members, ``==``, and ``repr``/``str`` giving the C++ text form (``M_X::toText``);
- enumerations as ``enum.IntEnum`` named as the C++ wrapper: ``M_Alert.AlarmCategoryKind.Warning`` is
  ``M_Alert::AlarmCategoryKind::Warning`` (of type ``M_Alert::AlarmCategoryKind::Type``). A literal that is
  a Python keyword gets a trailing underscore (``M_Common.HorizontalDirection.None_``);
- lists and optionals are lists (an optional holds 0 or 1 element), a list of octets is ``bytes``, strings
  are ``str``, numbers ``int``/``float``, booleans ``bool``;
- ``IService`` / ``IClient``: one method per operation; a method that is not overridden logs
  "default implementation called: ...";
- ``Client`` / ``Service``: ``create(domain_or_session, name, impl)`` (receives the operations ``impl``
  overrides), ``create(domain_or_session, name, callbacks, methods=None)`` with a dict of operation name to
  a callable or a list of callables, ``createWriteOnly(domain_or_session, name)``,
  ``createReadOnly(monitor, name, impl_or_callbacks, methods=None)``, ``createMonitor(monitor,
  impl_or_callbacks, methods=None)``; then one sending method per operation (keyed reports end in
  ``dispose=False``), ``invalidate()``, ``isValid()``, ``actorInfo()``, ``callbackInfo()``,
  ``waitUntilConnected()`` and ``setName()`` (Client), and ``with`` (invalidates at the end).

A value that cannot go on the wire raises TypeError or ValueError naming the operation and the member
("M_Alert.CmdRaiseAlarm: Condition.SubsystemName: expected str, got int"); nothing is sent then.
Received operations run on the session's dispatcher thread, one at a time, holding the GIL for the call;
an exception a callback raises is logged (error level, with its traceback) and the dispatcher goes on.
Sending works from any thread. Facades still alive when the interpreter exits are invalidated first.
"""

import atexit as _atexit

from vantrel import _vantrel
from vantrel import catalog, log
from vantrel._vantrel import ActorInfo, CallbackInfo, MonitorSession, Session, getMonitorSession, getSession

__all__ = ["ActorInfo", "CallbackInfo", "MonitorSession", "Session", "catalog", "getMonitorSession", "getSession",
           "log"]

_atexit.register(_vantrel.shutdown)
