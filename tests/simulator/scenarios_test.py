"""Plays each scenario of a folder against the example that its first line names.
usage: scenarios_test.py FOLDER EXAMPLES [EMULATOR...] ORVD_SIM"""
import os
import sys
import tempfile
from contextlib import suppress
from pathlib import Path
from subprocess import PIPE, STDOUT, Popen, TimeoutExpired

from desk import check_rows, in_folder, kill

FOLDER, EXAMPLES, EMULATOR, ORVD_SIM = Path(sys.argv[1]), Path(sys.argv[2]), sys.argv[3:-1], sys.argv[-1]


def start_service(scenario, folder, log):
    service = EXAMPLES / scenario.read_text(encoding="utf-8").split("\n", 1)[0].removeprefix("# Service: examples/")
    return Popen(in_folder(folder, *EMULATOR, service), stdout=log, stderr=STDOUT)


def play(scenario):
    """Starts the service again when it ends, as init does on a device. A service must not crash."""
    with tempfile.TemporaryDirectory() as folder, open(folder + "/log", "w+", encoding="utf-8") as log:
        words = [*EMULATOR, ORVD_SIM, "play", scenario, "--path", folder + "/orvd", "--patience", "60"]
        manager = Popen(words, stdout=PIPE, stderr=STDOUT, text=True)
        codes, service = {0}, start_service(scenario, folder, log)
        while manager.poll() is None and codes <= {0, 1}:
            with suppress(TimeoutExpired):
                manager.wait(0.05)
            if manager.poll() is None and service.poll() is not None:
                codes.add(service.returncode)
                service = start_service(scenario, folder, log)
        manager.kill()
        kill(service)
        printed = manager.communicate()[0]
        log.seek(0)
        good = manager.returncode == 0 and codes <= {0, 1}
        return "" if good else f"{scenario}: {manager.returncode}, service: {codes}\n{printed}\n{log.read()}"


scenarios = sorted(FOLDER.glob("*.scenario"))
assert scenarios
check_rows(play, zip(scenarios), 4 * os.cpu_count())
