"""Runs the benchmark and prints its tables. It needs a private folder /dev/socket, see `./dev bench`.
Every ratio compares measurements of the same run."""
import argparse
import collections
import contextlib
import json
import os
import pathlib
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

PROJECT = pathlib.Path(__file__).resolve().parent.parent
FOLDER = pathlib.Path("/dev/socket")  # "orvd" in it is a symbolic link: where the next service connects
PASSES = 5  # of each mode with each service, in each round

# The measured service, and what it is compared with. The ways are names of sockets.
PLAIN, DECODING, LAYER = ["library", "baseline"], ["library", "baseline", "decoding"], ["layer", "raw"]
WAYS = ["manager", "monitor", "recorder"]
PROGRAMS = {"baseline": ["baseline"], "decoding": ["baseline", "decode"], "layer": ["layer_service"]}  # others: raw

TEN = ("u8:200 u16:60000 u32:4000000000 u64:18446744073709551615 i8:-100 i16:-30000 i32:-2000000000 f64:273.15"
       " str:a_text_of_some_length bool:true ")
# The task's arguments by the name of its function.
ARGUMENTS = {
    "none": lambda count: "",
    "scalars": lambda count: TEN * (count // 10),
    "struct": lambda count: f"struct:[{','.join(json.dumps(f'i32:{-1000000 - i}') for i in range(count))}]",
    "uint32s": lambda count: "u32[]:" + ",".join(str(10**9 + i * 58711) for i in range(count)),
    "int32s": lambda count: "i32[]:" + ",".join(str(-(10**7) - i % 1000 * 79999) for i in range(count)),
    "string": lambda count: "str:" + "s" * count,
}
ARGUMENTS |= {f"sum_{name}": ARGUMENTS[name] for name in ("scalars", "struct")}
# The bytes of an element in a message, and the largest acceptable ratio of decoding time to parsing time.
DECODED = {"scalars": (50, 0.30), "struct": (41, 0.30), "uint32s": (11, 0.10), "int32s": (10, 0.10), "string": (1, 0.02)}

# `operations` are of each service in each round. `line` is for bench_driver. A service that decodes the arguments
# has to answer with `read`: the number of the values (of a text: its size), or for the layer's modes their sum.
Mode = collections.namedtuple("Mode", "name operations target compared line read one_at_a_time", defaults=(0, False))


def tasks(name, operations, targets, compared, function, count, read=None):
    """A mode for each number of outstanding tasks."""
    for outstanding, target in targets.items():
        yield Mode(name + (f", {outstanding} outstanding" if outstanding > 1 else ""), operations, target, compared,
                   f"tasks %s %s {outstanding} %s {function} {ARGUMENTS[function](count)}", read or count, outstanding == 1)


# The target is the largest acceptable ratio; for WAYS, the smallest acceptable one.
MODES = [
    *tasks("no arguments", 20000, {1: 1.03, 8: 0.80, 64: 0.85}, PLAIN, "none", 0),
    *tasks("10 scalars", 20000, {1: 1.17, 8: 0.95, 64: None}, DECODING, "scalars", 10),
    *tasks("struct of 50", 5000, {1: 1.20, 8: 1.13, 64: None}, DECODING, "struct", 50),
    *tasks("vector of 10,000 uint32", 200, {1: 1.08}, DECODING, "uint32s", 10000),
    *tasks("vector of 50,000 int32", 50, {1: 1.10}, DECODING, "int32s", 50000),
    *tasks("string of 200 kB", 1000, {1: 1.03}, DECODING, "string", 200000),
    Mode("session of 1 pair", 5000, None, PLAIN, "sessions %s %s 1"),
    Mode("session of 64 pairs", 1000, 1.12, PLAIN, "sessions %s %s 64"),
    Mode("notification", 20000, 1.13, PLAIN, "notifications %s %s"),
    Mode("permission query", 10000, 1.13, PLAIN, "ask %s %s 1"),
    Mode("permission query, 16 items", 5000, None, PLAIN, "ask %s %s 16"),
    *tasks("layer, 10 scalars", 20000, {1: 1.05, 8: None}, LAYER, "sum_scalars", 10, 2000030394),
    *tasks("layer, struct of 50", 5000, {1: 1.05, 8: None}, LAYER, "sum_struct", 50, -50001225),
]
MONITOR_MODES = list(tasks("10 scalars", 300, {1: 0.70, 8: 0.70, 64: 0.70}, WAYS, "scalars", 10))


class Bench:
    """The driver, and the services that are connected to it."""

    def __init__(self, programs):
        self.programs, self.numbers = programs, {}
        self.driver = subprocess.Popen([f"{programs}/bench_driver", FOLDER / "manager"], stdin=subprocess.PIPE,
                                       stdout=subprocess.PIPE, text=True)
        self.driver.stdout.readline()  # services can connect now

    def ask(self, line):
        print(line, file=self.driver.stdin, flush=True)
        answer = self.driver.stdout.readline()
        return [int(word) for word in answer.split()] if answer else sys.exit("bench: the driver has ended")

    @contextlib.contextmanager
    def connected(self, services):
        """Keeps new processes of the services connected. All of them keep the memory that they free."""
        processes = []
        environment = os.environ | {"MALLOC_TRIM_THRESHOLD_": "1000000000", "MALLOC_TOP_PAD_": "50000000"}
        try:
            for service in services:
                (FOLDER / "orvd").unlink(missing_ok=True)
                (FOLDER / "orvd").symlink_to(service if service in WAYS else "manager")
                program, *options = PROGRAMS.get(service, ["raw_service"])
                processes.append(subprocess.Popen([f"{self.programs}/bench_{program}", *options], env=environment))
                self.numbers[service] = self.ask("connect")[0]
            yield
        finally:
            for process in processes:
                process.kill()
                process.wait()

    def measure(self, mode, operations, passes):
        """Returns the times of all operations in us for each service. Every second pass is in reverse order, so that
        no service always follows the same one."""
        times = {service: [] for service in mode.compared}
        for number in range(passes):
            for service in mode.compared[:: -1 if number % 2 else 1]:
                expected = f'"read":{0 if service == "baseline" else mode.read},'
                words = (self.numbers[service], operations, expected)[:mode.line.count("%s")]
                times[service] += [ns / 1000 for ns in self.ask(mode.line % words)]
        return times


def summary(mode, rounds, operations):
    """`rounds` has the times of all operations by service, for each round. The ratios compare times of one round."""
    us = [{service: statistics.median(values) if mode.one_at_a_time else sum(values) / operations
           for service, values in times.items()} for times in rounds]
    first, *others = mode.compared
    row = {"mode": mode.name, "target": mode.target, "compared": mode.compared}
    row["us"] = {service: statistics.median(one[service] for one in us) for service in mode.compared}
    for other in others:
        ratios = [one[first] / one[other] for one in us]
        row[f"to {other}"] = {"median": statistics.median(ratios), "min": min(ratios), "max": max(ratios)}
    if mode.one_at_a_time:
        merged = {service: sorted(us for times in rounds for us in times[service]) for service in mode.compared}
        row["latencies_us"] = {service: [values[len(values) * percent // 100] for percent in (50, 90, 99)]
                               for service, values in merged.items()}
    return row


def measure_socket(bench, options):
    modes = [mode for mode in MODES if mode.name.startswith(options.modes)]
    passes = 1 if options.smoke else PASSES
    operations = {mode.name: max(1, mode.operations * options.percent // 100 // PASSES) for mode in modes}
    rounds = collections.defaultdict(list)
    for number in range(options.rounds):
        print(f"round {number + 1} of {options.rounds}", file=sys.stderr)
        for services in (DECODING, LAYER):
            with bench.connected(services):
                for mode in modes:
                    if mode.compared[0] in services:
                        rounds[mode.name].append(bench.measure(mode, operations[mode.name], passes))
    return [summary(mode, rounds[mode.name], operations[mode.name] * passes) for mode in modes]


def measure_monitor(bench, orvd_sim, rounds):
    with contextlib.ExitStack() as stack:
        folder = stack.enter_context(tempfile.TemporaryDirectory())
        for way, options in (("monitor", []), ("recorder", ["--record", f"{folder}/recording"])):
            lines = stack.enter_context(open(f"{folder}/{way}", "w"))
            monitor = subprocess.Popen([orvd_sim, "monitor", "--path", FOLDER / way, "--upstream", FOLDER / "manager",
                                        *options], stdout=lines)
            stack.callback(monitor.wait)
            stack.callback(monitor.terminate)
            while not (FOLDER / way).exists() and monitor.poll() is None:
                time.sleep(0.01)
        with bench.connected(WAYS):
            # Modes in turn: in many equal runs the processes could stay on one processor, which changes the ratios.
            measured = [[bench.measure(mode, mode.operations, 1) for mode in MONITOR_MODES] for _ in range(rounds)]
    return [summary(mode, times, mode.operations) for mode, times in zip(MONITOR_MODES, zip(*measured))]


def measure_in_process(program, seconds):
    lines = [f"{function} {ARGUMENTS[function](max(10, size // unit))}\n" for function, (unit, _) in DECODED.items()
             for size in (1000, 5000, 20000, 100000, 500000)]
    run = subprocess.run([program, str(seconds)], input="".join(lines), stdout=subprocess.PIPE, text=True, check=True)
    samples = collections.defaultdict(list)
    for line in run.stdout.splitlines():
        name, number, *times = line.split("\t")
        samples[name, int(number)].append([float(us) for us in times])
    columns = ("parse_us", "decode_us", "release_us", "decode_per_parse")
    return [{"function": name, "bytes": number, "target": DECODED[name][1]} |
            dict(zip(columns, map(statistics.median, zip(*values)))) for (name, number), values in samples.items()]


# --- Compile time of a service on the layer and of one on the raw interface, with a function for each of these types.

TYPES = {"uint8_t": "UINT8", "int16_t": "INT16", "uint32_t": "UINT32", "int64_t": "INT64", "double": "DOUBLE",
         "bool": "BOOLEAN", "std::string": "STRING", "std::vector<double>": "VECTOR_OF(ORVEX_DOUBLE)",
         "std::vector<int64_t>": "VECTOR_OF(ORVEX_INT64)", "std::vector<std::string>": "VECTOR_OF(ORVEX_STRING)"}
LAYER_SERVICE = """#include <orvex/service.h>
int main() {
  orvex::Service service;
  service.Offer(0xa002, {1}, "t")%s;
  return service.Run();
}
"""
RAW_FUNCTION = """bool F%d(const orvex_func_call_info_t& args, std::string& body) {
  if (args.typed_queue == nullptr || args.typed_queue->count(1) == 0) return false;
  const auto& [type, holder] = args.typed_queue->at(1);
  if (type != ORVEX_%s) return false;
  const auto& a = static_cast<const ParamValues<%s>&>(*holder).value;
  body = R"("a":)" + %s;
  return true;
}
"""


def layer_source():
    return LAYER_SERVICE % "".join(f'.On("f{i}", [](const {name}& a) {{ return orvex::Object{{{{"a", a'
                                   f'{".size()" * ("vector" in name)}}}}}; }})' for i, name in enumerate(TYPES))


def raw_source():
    """The raw example, with the functions in addition."""
    functions, calls = "", ""
    for i, (name, code) in enumerate(TYPES.items()):
        text = "Escaped(a)" if name == "std::string" else f"std::to_string(a{'.size()' * ('vector' in name)})"
        functions += RAW_FUNCTION % (i, code, name, text)
        calls += f'  if (args.func_name == "f{i}" && F{i}(args, call->result)) return 0;\n'
    text = (PROJECT / "examples/raw_service.cpp").read_text()
    for place, new in (("// Runs one task.", functions), ("  if (label != nullptr) {", calls)):
        if text.count(place) != 1:
            sys.exit(f"examples/raw_service.cpp has no place '{place}'")
        text = text.replace(place, new + place)
    return text


def measure_compilation(compiler, rounds):
    """Returns the smallest processor time for each source file, of several alternating rounds."""
    separate = "-DORVEX_SEPARATE_COMPILATION"
    sources = {"raw": [raw_source()], "layer, functions compiled apart": [layer_source(), separate],
               "the layer's functions, once": ["#include <orvex/implementation.h>\n", separate],
               "layer, all in one file": [layer_source()]}
    times = collections.defaultdict(list)
    for name, (text, *options) in list(sources.items()) * rounds:
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        subprocess.run([compiler, "-std=c++17", "-O2", f"-I{PROJECT}/include", "-isystem", "/usr/include/jsoncpp",
                        *options, "-x", "c++", "-c", "-", "-o", "/dev/null"], input=text, text=True, check=True)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        times[name].append(after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime)
    return {name: min(seconds) for name, seconds in times.items()}


# --- The tables

def print_table(header, rows):
    if not rows:
        return
    widths = [max(map(len, column)) for column in zip(header, *rows)]
    for name, *cells in [header, *rows]:
        line = [name.ljust(widths[0])] + [cell.rjust(width) for cell, width in zip(cells, widths[1:])]
        print("  ".join(line).rstrip())
    print()


def shown(row, other):
    ratio = row.get(f"to {other}")
    return f"{ratio['median']:.2f} ({ratio['min']:.2f}..{ratio['max']:.2f})" if ratio else ""


def verdict(value, target):
    return "" if target is None else f"{target:.2f}{'     ' if value <= target else ' over'}"


def print_socket(rows, measured, reference):
    rows = [row for row in rows if row["compared"][:2] == [measured, reference]]
    print_table(["mode", f"{measured} us", f"{reference} us", "ratio (min..max)", "target",
                 "to decoding baseline" if measured == "library" else ""],
                [[row["mode"], f"{row['us'][measured]:.1f}", f"{row['us'][reference]:.1f}", shown(row, reference),
                  verdict(row[f"to {reference}"]["median"], row["target"]), shown(row, "decoding")] for row in rows])
    print_table(["latency, one task at a time, us", f"{measured}: median", "90 %", "99 %", f"{reference}: median", "90 %",
                 "99 %"], [[row["mode"], *(f"{us:.1f}" for service in (measured, reference)
                                           for us in row["latencies_us"][service])]
                           for row in rows if "latencies_us" in row])


def print_all(result):
    print_socket(result["socket"], *PLAIN)
    print_socket(result["socket"], *LAYER)
    print_table(["tasks a second, to a direct connection", "orvd-sim monitor", "with --record", "at least"],
                [[row["mode"], shown(row, "monitor"), shown(row, "recorder"), f"{row['target']:.2f}"]
                 for row in result["monitor"]])
    print_table(["arguments", "bytes", "parse us", "decode us", "release us", "decode/parse", "target"],
                [[row["function"], str(row["bytes"]), f"{row['parse_us']:.1f}", f"{row['decode_us']:.2f}",
                  f"{row['release_us']:.2f}", f"{row['decode_per_parse']:.3f}",
                  verdict(row["decode_per_parse"], row["target"])] for row in result["decode"]])
    for compiler, times in result["compilation"].items():
        print_table([f"compile time, {compiler}", "best", "ratio"],
                    [[name, f"{seconds:.2f} s", f"{seconds / times['raw']:.2f}"] for name, seconds in times.items()])


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=pathlib.Path, help="the folder of the build")
    parser.add_argument("--quick", dest="percent", action="store_const", const=10, default=100, help="coarser")
    parser.add_argument("--smoke", action="store_true", help="only checks some answers, on any processor")
    parser.add_argument("--rounds", type=int, default=5, help="with new processes in each; default 5")
    parser.add_argument("--modes", default="", help="over the socket, only the modes whose names begin so")
    parser.add_argument("--json", metavar="FILE", help="also writes the numbers to a file")
    options = parser.parse_args()
    if options.smoke:
        options.percent = options.rounds = 1
    processors = os.sched_getaffinity(0)
    if not options.smoke:
        os.sched_setaffinity(0, {max(processors)})  # the first one usually handles more interrupts
    programs = options.build / "bench"
    bench = Bench(programs)
    result = {"rounds": options.rounds, "socket": measure_socket(bench, options)}
    result["decode"] = measure_in_process(programs / "bench_in_process", options.percent * 0.003)
    for process in (0, bench.driver.pid):
        os.sched_setaffinity(process, processors)
    result["monitor"] = measure_monitor(bench, options.build / "simulator/orvd-sim", max(1, options.percent // 2))
    compilers = [name for name in ("g++", "clang++-14") if shutil.which(name) and not options.smoke]
    result["compilation"] = {name: measure_compilation(name, 5 if options.percent == 100 else 1) for name in compilers}
    print_all(result)
    if options.json:
        pathlib.Path(options.json).write_text(json.dumps(result, indent=1))


if __name__ == "__main__":
    main()
