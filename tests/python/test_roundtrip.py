"""Every operation of the build, Python to Python with non-default values: received as sent, of the same
types; keyed ones then disposed, arriving with the flag and the keys."""

import enum
import importlib

import pytest

from vantrel import catalog
from conftest import wait_until
from recording import Recorder, same
from samples import arguments

MODULES = [m for m in catalog.modules() if catalog.operations(m)]


def _send_all(facade, operations, seed_base):
    sent = {}
    for n, op in enumerate(operations):
        args = arguments(op, seed_base + n + 1)
        defaults = [type(a)(0) if isinstance(a, enum.Enum) else type(a)() for a in args]
        assert all(not same(a, d) for a, d in zip(args, defaults)), f"{op.name}: an argument is its default"
        getattr(facade, op.name)(*args)
        sent[op.name] = args
    return sent


def _check_received(recorder, operations, sent):
    for op in operations:
        calls = recorder.calls(op.name)
        assert len(calls) == 1, f"{op.name}: {len(calls)} calls"
        expected = sent[op.name] + ((False,) if op.dispose else ())
        assert same(calls[0], expected), f"{op.name}: received {calls[0]}, sent {expected}"


def _dispose_all(facade, recorder, operations, sent):
    disposing = [op for op in operations if op.dispose]
    for op in disposing:
        getattr(facade, op.name)(*sent[op.name], dispose=True)
    assert wait_until(lambda: recorder.reached([op.name for op in disposing], 2), 20), "not every dispose arrived"
    for op in disposing:
        calls = recorder.calls(op.name)
        assert len(calls) == 2, f"{op.name}: {len(calls)} calls"
        assert calls[1][-1] is True, f"{op.name}: dispose flag"
        for i, param in enumerate(op.params):
            if param.key:
                assert same(calls[1][i], sent[op.name][i]), f"{op.name}: key {param.name} of the dispose"


@pytest.mark.parametrize("module_name", MODULES)
def test_every_operation_both_ways(module_name, sessions):
    module = importlib.import_module(f"vantrel.{module_name}")
    operations = catalog.operations(module_name)
    to_service_ops = [op for op in operations if op.interface == "IService"]
    to_client_ops = [op for op in operations if op.interface == "IClient"]
    to_service, to_client = Recorder(), Recorder()
    # The service receives through an implementation (what it overrides is read), the client through a map.
    overrides = {op.name: staticmethod(to_service.callback(op.name)) for op in to_service_ops}
    service = module.Service.create(sessions[0], f"roundtrip_{module_name}_service",
                                    type("Recording", (module.IService,), overrides)())
    client = module.Client.create(sessions[1], f"roundtrip_{module_name}_client",
                                  {op.name: to_client.callback(op.name) for op in to_client_ops})
    with service, client:
        assert sorted(service.actorInfo().methodsRead) == sorted(op.name for op in to_service_ops)
        assert sorted(client.actorInfo().methodsRead) == sorted(op.name for op in to_client_ops)
        if to_service_ops:
            client.waitUntilConnected()
        sent_to_service = _send_all(client, to_service_ops, 0)
        sent_to_client = _send_all(service, to_client_ops, 1000)
        assert wait_until(lambda: to_service.reached([op.name for op in to_service_ops], 1)
                          and to_client.reached([op.name for op in to_client_ops], 1), 20), "not every operation arrived"
        _check_received(to_service, to_service_ops, sent_to_service)
        _check_received(to_client, to_client_ops, sent_to_client)
        _dispose_all(client, to_service, to_service_ops, sent_to_service)
        _dispose_all(service, to_client, to_client_ops, sent_to_client)
