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


def trace(line):
    _vantrel.log_write("trace", line)


def debug(line):
    _vantrel.log_write("debug", line)


def info(line):
    _vantrel.log_write("info", line)


def warn(line):
    _vantrel.log_write("warn", line)


def error(line):
    _vantrel.log_write("error", line)


def fatal(line):
    _vantrel.log_write("fatal", line)
