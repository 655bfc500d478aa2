"""The toolkit's logger, shared with the C++ side: one process-wide logger, levels trace, debug, info, warn
(the default), error, fatal and off; lines go to stderr unless setSink says otherwise."""

from vantrel import _vantrel


def setLevel(level):
    """The most verbose level written ("trace" ... "fatal", or "off")."""
    _vantrel.log_set_level(level)


def level():
    return _vantrel.log_level()


def setSink(sink):
    """Where lines go: "stderr", "stdout" or "file:<path>" (appended)."""
    _vantrel.log_set_sink(sink)


def isEnabled(level):
    return _vantrel.log_is_enabled(level)


def _writer(level):
    def write(line):
        _vantrel.log_write(level, line)
    write.__name__ = write.__qualname__ = level
    write.__doc__ = f"Writes `line` at level {level} (nothing is written below the logger's level)."
    return write


trace, debug, info, warn, error, fatal = (_writer(lvl) for lvl in ("trace", "debug", "info", "warn", "error", "fatal"))
