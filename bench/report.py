"""Prints the tables of one benchmark, and writes its JSON file and charts.

usage: report.py SOCKET_JSON IN_PROCESS_JSON [--json FILE] [--plot FILE]
"""

import argparse
import json
import statistics

# The measured service and the one that it is compared with. A mode has the times of one of these pairs.
COMPARISONS = [("library", "baseline"), ("layer", "raw")]
# Target for a mode: the largest acceptable ratio of the two times.
TARGETS = {
    "no arguments": 1.03,
    "no arguments, 8 outstanding": 0.80,
    "no arguments, 64 outstanding": 0.85,
    "10 scalars": 1.17,
    "10 scalars, 8 outstanding": 0.95,
    "struct of 50": 1.20,
    "struct of 50, 8 outstanding": 1.13,
    "vector of 10,000 uint32": 1.08,
    "vector of 50,000 int32": 1.10,
    "string of 200 kB": 1.03,
    "session of 64 pairs": 1.12,
    "notification": 1.13,
    "permission query": 1.13,
    "layer, 10 scalars": 1.05,
    "layer, struct of 50": 1.05,
}
# Target for a shape: the largest acceptable ratio of decoding time to parsing time.
DECODE_TARGETS = {"scalars": 0.30, "struct": 0.30, "uint32s": 0.10, "int32s": 0.10, "string": 0.02}


def ratios(times, measured, reference):
    """Median, lowest and highest ratio. Each ratio compares two times of the same round."""
    values = [a / b for a, b in zip(times[measured], times[reference])]
    return {"median": statistics.median(values), "min": min(values), "max": max(values)}


def socket_rows(report):
    rows = []
    for mode in report["modes"]:
        times = mode["microseconds"]
        measured, reference = next(pair for pair in COMPARISONS if pair[0] in times)
        row = {
            "mode": mode["name"],
            "compared": [measured, reference],
            f"{measured}_us": statistics.median(times[measured]),
            f"{reference}_us": statistics.median(times[reference]),
            "ratio": ratios(times, measured, reference),
            "target": TARGETS.get(mode["name"]),
            "latencies_us": mode.get("latencies"),
        }
        if "decoding_baseline" in times:
            row["ratio_to_decoding_baseline"] = ratios(times, "library", "decoding_baseline")
        rows.append(row)
    return rows


def decode_rows(report):
    rows = []
    for run in report["benchmarks"]:
        if run["name"].startswith("decode/"):
            row = {"shape": run["name"].split("/")[1]}
            row |= {key: run[key] for key in ("bytes", "parse_us", "decode_us", "release_us", "decode_per_parse")}
            row["target"] = DECODE_TARGETS[row["shape"]]
            rows.append(row)
    return rows


def part_rows(report):
    """Time of one operation, when `at_a_time` operations are under way at a time."""
    rows = []
    for run in report["benchmarks"]:
        if run["name"].startswith("part/"):
            _, part, *rest = run["name"].split("/")
            at_a_time = int(rest[0]) if rest and rest[0].isdigit() else 1
            rows.append({"part": part, "at_a_time": at_a_time, "us": run["real_time"] / at_a_time / 1000})
    return rows


def shown(ratio):
    return f"{ratio['median']:.2f} ({ratio['min']:.2f}..{ratio['max']:.2f})" if ratio else ""


def verdict(value, target):
    return "" if target is None else f"{target:.2f}{'' if value <= target else ' over'}"


def print_ratios(rows, measured, reference):
    print(f"{'mode':34} {measured + ' us':>11} {reference + ' us':>11}  {'ratio (min..max)':18} {'target':10}"
          f" {'to decoding baseline' if measured == 'library' else ''}")
    for row in rows:
        print(
            f"{row['mode']:34} {row[measured + '_us']:11.1f} {row[reference + '_us']:11.1f}  {shown(row['ratio']):18} "
            f"{verdict(row['ratio']['median'], row['target']):10} {shown(row.get('ratio_to_decoding_baseline'))}"
        )


def print_latencies(rows, measured, reference):
    print(f"\nlatency, one task at a time, us {measured + ': median':>20}      90 %      99 %"
          f"   {reference + ': median':>18}      90 %      99 %")
    for row in rows:
        if row["latencies_us"]:
            times = [row["latencies_us"][name] for name in (measured, reference)]
            print(f"{row['mode']:41}" + "".join(f"{us:10.1f}" for us in times[0]) + " " * 11
                  + "".join(f"{us:10.1f}" for us in times[1]))


def print_socket(rows):
    for measured, reference in COMPARISONS:
        compared = [row for row in rows if row["compared"] == [measured, reference]]
        print_ratios(compared, measured, reference)
        print("modes with one task at a time: median latency; other modes: mean time")
        print_latencies(compared, measured, reference)
        print()


def print_in_process(decode, parts):
    print(f"{'arguments':10} {'bytes':>8} {'parse us':>10} {'decode us':>10} {'release us':>10} {'decode/parse':>13} target")
    for row in decode:
        print(
            f"{row['shape']:10} {row['bytes']:8.0f} {row['parse_us']:10.1f} {row['decode_us']:10.2f} "
            f"{row['release_us']:10.2f} {row['decode_per_parse']:13.3f} {verdict(row['decode_per_parse'], row['target'])}"
        )
    print(f"\n{'part of a small task':40} {'at a time':>9} {'us each':>9}")
    for row in parts:
        print(f"{row['part']:40} {row['at_a_time']:9} {row['us']:9.2f}")


def plot(file, rows, decode):
    import matplotlib

    matplotlib.use("Agg")
    from matplotlib import pyplot

    figure, (bars, lines) = pyplot.subplots(1, 2, figsize=(15, 7))
    names = [row["mode"] for row in rows]
    medians = [row["ratio"]["median"] for row in rows]
    spread = [
        [median - row["ratio"]["min"] for median, row in zip(medians, rows)],
        [row["ratio"]["max"] - median for median, row in zip(medians, rows)],
    ]
    bars.barh(names, medians, xerr=spread, color="tab:blue", ecolor="gray")
    bars.scatter([row["target"] for row in rows], names, marker="|", s=200, color="tab:red", zorder=3, label="target")
    bars.axvline(1, color="black", linewidth=0.8)
    bars.invert_yaxis()
    bars.set_title("library / baseline, layer / raw: median and range of the rounds")
    bars.legend()
    for shape in dict.fromkeys(row["shape"] for row in decode):
        of_shape = [row for row in decode if row["shape"] == shape]
        sizes = [row["bytes"] for row in of_shape]
        color = lines.plot(sizes, [row["parse_us"] for row in of_shape], "o--", linewidth=1)[0].get_color()
        lines.plot(sizes, [row["decode_us"] for row in of_shape], "o-", color=color, label=shape)
    lines.set(xscale="log", yscale="log", xlabel="message, bytes", ylabel="us")
    lines.set_title("time by message size: parse (dashed), decode")
    lines.legend()
    figure.tight_layout()
    figure.savefig(file)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("socket_json")
    parser.add_argument("in_process_json")
    parser.add_argument("--json", metavar="FILE")
    parser.add_argument("--plot", metavar="FILE", help="SVG or PNG, by its ending")
    options = parser.parse_args()
    with open(options.socket_json) as socket, open(options.in_process_json) as in_process:
        socket_report, in_process_report = json.load(socket), json.load(in_process)
    rows, decode = socket_rows(socket_report), decode_rows(in_process_report)
    parts = part_rows(in_process_report)
    print_socket(rows)
    print_in_process(decode, parts)
    if options.json:
        with open(options.json, "w") as out:
            json.dump({"socket": rows, "decode": decode, "parts": parts, "rounds": socket_report["rounds"]}, out, indent=1)
    if options.plot:
        plot(options.plot, rows, decode)


if __name__ == "__main__":
    main()
