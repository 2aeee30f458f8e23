"""What the tests of orvd-sim share."""
import os
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from contextlib import suppress
from pathlib import Path
from signal import SIGKILL


def in_folder(folder, *command):
    """The command, for which the folder takes the place of /dev/socket."""
    return ["bwrap", "--die-with-parent", "--bind", "/", "/", "--dev", "/dev", "--bind", folder, "/dev/socket", "--",
            *command]


def kill(started):
    """Kills a command of in_folder, and waits for its end."""
    if started.poll() is None:
        children = Path(f"/proc/{started.pid}/task/{started.pid}/children").read_text("utf-8").split()
        for process in children or [started.pid]:  # bwrap waits for its child. At first it has none.
            with suppress(ProcessLookupError):  # the child may have ended
                os.kill(int(process), SIGKILL)
        started.wait()


def wait(condition):
    end = time.monotonic() + 20
    while not condition():
        assert time.monotonic() < end, "nothing happens"
        time.sleep(0.005)


def check_rows(check, rows, at_a_time):
    """Ends the test, with the problems that the checks of the rows return or raise."""
    def problem(row):
        try:
            return check(*row)
        except Exception as error:  # pylint: disable=broad-except
            return f"{row}: {type(error).__name__} {error}"
    with ThreadPoolExecutor(at_a_time) as pool:
        sys.exit("\n".join(filter(None, pool.map(problem, rows))) or 0)
