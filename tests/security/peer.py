"""A secured application: one session (KELVA_CONFIG) with a facade of one side of each module, over stdin/stdout.
    peer.py service|client[-write-only] DOMAIN MARKER MODULE...
Prints "ready", "received|disposed <M_X.I.Op> <text>" per operation received, "sent|sent-disposal <M_X.I.Op> <text>"
or "refused <M_X.I.Op>: <reason>" per send (MARKER in every string), "sent-all" after a round and "done" at the end.
Input "send" sends every operation of the side, "dispose" disposes every keyed one (a round of its own: a keep-last
reader that has not taken a sample yet would see only the disposal); end of input ends the program."""

import importlib
import os
import sys
import threading

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "python"))
import vantrel  # noqa: E402
from samples import arguments  # noqa: E402
from vantrel import catalog  # noqa: E402

lock = threading.Lock()


def say(line):
    with lock:
        print(line, flush=True)


def receiver(op):
    def receive(*args):
        disposed = op.dispose and args[-1]
        say(f"{'disposed' if disposed else 'received'} {op.module}.{op.interface}.{op.name} "
            f"{op.text(args[:-1] if op.dispose else args)}")
    return receive


def main(side, domain, marker, *modules):
    receives = not side.endswith("-write-only")
    service = side.startswith("service")
    session = vantrel.Session(int(domain))
    facades = []
    for name in modules:
        module = importlib.import_module(f"vantrel.{name}")
        cls = module.Service if service else module.Client
        ops = catalog.operations(name)
        received = {op.name: receiver(op) for op in ops if (op.interface == "IService") == service}
        facade = cls.create(session, f"security-peer-{side}", received) if receives else \
            cls.createWriteOnly(session, f"security-peer-{side}")
        facades.append((facade, [op for op in ops if op.name not in received]))
    say("ready")
    for command in sys.stdin:
        dispose = command.strip() == "dispose"
        for facade, ops in facades:
            for op in (op for op in ops if op.dispose or not dispose):
                args, name = arguments(op, 1, marker), f"{op.module}.{op.interface}.{op.name}"
                try:
                    getattr(facade, op.name)(*args, **({"dispose": True} if dispose else {}))
                    say(f"{'sent-disposal' if dispose else 'sent'} {name} {op.text(args)}")
                except (TypeError, ValueError, RuntimeError) as e:
                    say(f"refused {name}: {e}")
        say("sent-all")
    for facade, _ in facades:
        facade.invalidate()
    say("done")


if __name__ == "__main__":
    main(*sys.argv[1:])
