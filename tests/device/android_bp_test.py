"""Compares Android.bp with the host's build. Usage, in the build folder: android_bp_test.py NINJA PROJECT"""

import re
import subprocess
import sys
from pathlib import Path

ninja, project = sys.argv[1], Path(sys.argv[2])


def read_modules():
    """For each module a set of "property value", which includes the defaults. "srcs" are the files that it matches."""
    text = re.sub(r"\s*//.*", "", (project / "Android.bp").read_text())
    modules = {}
    for kind, body in re.findall(r"^(\w+) {\n(.*?)^}", text, re.M | re.S):
        pairs = [(key, value) for key, values in re.findall(r"^ +(\w+): (\[.*?\]|\S+),$", body, re.M | re.S)
                 for value in re.findall(r'[^][\s",]+', values)]
        module = {f"{key} {value}" for key, value in pairs if key not in {"name", "defaults", "srcs"}}
        module.add(f"kind {kind}")
        for key, value in pairs:
            module |= modules[value] - {"kind cc_defaults"} if key == "defaults" else set()
            files = project.glob(value) if key == "srcs" else ()
            module |= {f"srcs {file.relative_to(project)}" for file in files}
        modules[dict(pairs)["name"]] = module
    del modules["liborvex2_0_defaults"]
    return modules


def host(target, folder):
    """The sources in `folder`, the flags and the libraries of `target` on the host, also as "property value"."""
    lines = subprocess.check_output([ninja, "-t", "commands", target], text=True).splitlines()
    used = [line for line in lines if f" -c {project}/{folder}/" in line]
    used += [re.sub(r" -o \S+", "", line) for line in [
        line for line in lines if " -o " in line and " -c " not in line][-1:]]  # none for an archive
    used = re.sub(r" -l(\w+)", r" lib\1.so", " ".join(used)).replace("liborvex_host_platform.a", "libcutils.so")
    words = {"srcs": rf" -c {project}/(\S+)", "cpp_std": r" -std=(\S+)", "cppflags": r" (-W(?!l,)\S+|-fvis\S+|-DORVD\S+)",
             "local_include_dirs": rf" -I{project}/((?!include|platform)\S+)", "shared_libs": r"[ /](lib\w+)\.so",
             "static_libs": r"[ /](lib\w+)\.a", "version_script": rf"--version-script={project}/(\S+)"}
    return {f"{key} {value}" for key, pattern in words.items() for value in re.findall(pattern, used)}


# Soong builds with clang. It disables exceptions by default.
program = {"vendor true", "rtti true", "cppflags -fexceptions", "cppflags -Wthread-safety"}
headers = {"vendor true", "export_include_dirs include"}
wanted = {
    "liborvex2_0": program | headers | host("liborvex2_0.so", "src") | {
        "kind cc_library_shared", "export_shared_lib_headers libjsoncpp"},
    "liborvex2_0_headers": headers | {"kind cc_library_headers"},
    "sensor_hub_service": program | host("sensor_hub_service", "examples") | {
        "kind cc_binary", "init_rc examples/sensor_hub_service.rc"},
    "liborvex_simulator": program | host("simulator/liborvex_simulator.a", "simulator") - {
        "local_include_dirs simulator/include"} | {
        "kind cc_library_static", "host_supported true", "export_include_dirs simulator/include",
        "shared_libs libjsoncpp", "export_shared_lib_headers libjsoncpp"},
    "orvd-sim": program | host("orvd-sim", "simulator/desk") | {"kind cc_binary", "host_supported true"},
}
found = read_modules()
differences = [f"{name}: {line}, only {'in Android.bp' if line in found.get(name, ()) else 'wanted'}"
               for name in wanted.keys() | found.keys()
               for line in sorted(wanted.get(name, set()) ^ found.get(name, set()))]
if "/vendor/bin/sensor_hub_service\n" not in (project / "examples/sensor_hub_service.rc").read_text():
    differences.append("sensor_hub_service.rc starts another program")
sys.exit("\n".join(differences) or 0)
