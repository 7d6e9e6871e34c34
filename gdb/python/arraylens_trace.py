# A trace's stops handled inside gdb: the breakpoints get the condition
# `$_arraylens_trace()`, which gdb evaluates at each hit before it would
# report a stop. The function describes the traced expression in the frame
# of the hit (as arraylens_describe.describe would), sends the frame and the
# description to the service over a local socket as one JSON line, and
# waits for the answer: "go" lets the program go on at once (the service has
# copied what it needs out of the stopped program), anything else makes the
# hit an ordinary stop, which the service then handles over MI.
#
#   python arraylens_trace.install('PATH_HEX', 'EXPRESSION_HEX')
#   python arraylens_trace.uninstall()
#
# Only breakpoints without a condition, ignore count or temporary mark get
# the hook; the others stop as they always do. Any failure here is a stop.

import json
import socket

import gdb

import arraylens_describe

CONDITION = "$_arraylens_trace()"


class _Hook:
    connection = None
    reply = None
    expression_hex = ""
    breakpoints = []


_hook = _Hook()


def _hit():
    frame = gdb.selected_frame()
    sal = frame.find_sal()
    symtab = sal.symtab
    stop = {
        "thread": str(gdb.selected_thread().global_num),
        "func": frame.name() or "",
        "file": symtab.filename if symtab else "",
        "fullname": symtab.fullname() if symtab else "",
        "line": sal.line if symtab else 0,
        "describe": arraylens_describe.facts_line(_hook.expression_hex, True),
    }
    _hook.connection.sendall((json.dumps(stop) + "\n").encode(), socket.MSG_NOSIGNAL)
    return _hook.reply.readline() == b"go\n"


class _TraceFunction(gdb.Function):
    def __init__(self):
        super().__init__("_arraylens_trace")

    def invoke(self):
        if _hook.connection is None:
            return 1
        try:
            return 0 if _hit() else 1
        except Exception:  # noqa: BLE001 - the service has gone: plain stops from now on
            _close()
            return 1


_TraceFunction()


def _close():
    if _hook.connection is not None:
        try:
            _hook.reply.close()
            _hook.connection.close()
        except OSError:
            pass
    _hook.connection = _hook.reply = None


def install(path_hex, expression_hex):
    uninstall()
    connection = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    connection.connect(bytes.fromhex(path_hex).decode())
    _hook.connection = connection
    _hook.reply = connection.makefile("rb")
    _hook.expression_hex = expression_hex
    for b in gdb.breakpoints():
        if (b.is_valid() and b.type == gdb.BP_BREAKPOINT and b.enabled and not b.condition
                and b.ignore_count == 0 and not b.temporary):
            try:
                b.condition = CONDITION
            except gdb.error:
                continue
            _hook.breakpoints.append(b)
    gdb.write("arraylens-trace: %d\n" % len(_hook.breakpoints))


def uninstall():
    for b in _hook.breakpoints:
        if b.is_valid() and b.condition == CONDITION:
            b.condition = None
    _hook.breakpoints = []
    _close()
