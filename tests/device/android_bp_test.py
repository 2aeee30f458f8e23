"""Android.bp against the targets of the CMake build. usage: android_bp_test.py PROJECT TARGETS COMPILER_ID"""

import sys
from os.path import join, normpath
from pathlib import Path

from blueprint import read_modules

SOONG_LIBRARY = {
    "Android::base": "libbase",
    "Android::log": "liblog",
    "JsonCpp::JsonCpp": "libjsoncpp",
    "Orvex::orvex2_0": "liborvex2_0",
    "orvex_host_platform": "libcutils",
    "Threads::Threads": None,  # in the device's C library
    "orvex_options": None,  # no library
}
# Soong always builds with clang, with neither exceptions nor types at run time unless told.
CLANG_ALONE = {"-Wthread-safety"}
SOONG_ALONE = {"-fexceptions"}


class Target:
    def __init__(self, project, name, properties):
        self.project = project
        self.properties = {key.removeprefix(name + "."): value for key, value in properties.items()
                           if key.startswith(name + ".")}

    def list(self, name):
        return [word for word in self.properties[name].split(";") if word]

    def inside(self, paths):
        """Those in the project, relative to it."""
        base = self.properties["SOURCE_DIR"]
        whole = [Path(normpath(join(base, path))) for path in paths]
        return {str(path.relative_to(self.project)) for path in whole if self.project in path.parents}

    def sources(self):
        return self.inside(word for word in self.list("SOURCES") if word.endswith(".cpp"))

    def folders(self, name):
        return {folder for folder in self.inside(self.list(name)) if not folder.startswith("platform/")}

    def libraries(self, name):
        return {SOONG_LIBRARY.get(library, library) for library in self.list(name)} - {None}

    def flags(self, compiler):
        warnings = {option for option in self.list("COMPILE_OPTIONS") if option.startswith("-W")}
        hidden = {"-fvisibility=hidden"} if self.properties["CXX_VISIBILITY_PRESET"] == "hidden" else set()
        inlines = {"-fvisibility-inlines-hidden"} if self.properties["VISIBILITY_INLINES_HIDDEN"] == "ON" else set()
        return warnings | hidden | inlines | SOONG_ALONE | (set() if "Clang" in compiler else CLANG_ALONE)

    def standard(self):
        return ("gnu++" if self.properties["CXX_EXTENSIONS"] == "ON" else "c++") + self.properties["CXX_STANDARD"]

    def version_script(self):
        options = [option.split("--version-script=")[1] for option in self.list("LINK_OPTIONS")
                   if "--version-script=" in option]
        return self.inside(options)


def wanted_modules(project, properties, compiler):
    objects, library, service = (Target(project, name, properties)
                                 for name in ("orvex2_0_objects", "orvex2_0", "sensor_hub_service"))
    every = {"vendor": True, "rtti": True}
    exported = library.folders("INTERFACE_INCLUDE_DIRECTORIES")
    return {
        "liborvex2_0": {
            **every,
            "kind": "cc_library_shared",
            "srcs": objects.sources() | library.sources(),
            "cpp_std": objects.standard(),
            "cppflags": objects.flags(compiler),
            "local_include_dirs": objects.folders("INCLUDE_DIRECTORIES") - exported,
            "export_include_dirs": exported,
            "shared_libs": objects.libraries("LINK_LIBRARIES") | library.libraries("LINK_LIBRARIES"),
            "export_shared_lib_headers": library.libraries("INTERFACE_LINK_LIBRARIES"),
            "version_script": library.version_script(),
        },
        "liborvex2_0_headers": {
            "kind": "cc_library_headers",
            "vendor": True,
            "export_include_dirs": exported,
        },
        "sensor_hub_service": {
            **every,
            "kind": "cc_binary",
            "srcs": service.sources(),
            "cpp_std": service.standard(),
            "cppflags": service.flags(compiler),
            "shared_libs": service.libraries("LINK_LIBRARIES") | library.libraries("INTERFACE_LINK_LIBRARIES"),
            "init_rc": {"examples/sensor_hub_service.rc"},
        },
    }


def expanded(project, name, value):
    """A property as it is compared: lists as sets, patterns of sources as the files that they name."""
    if name == "srcs":
        return {str(path.relative_to(project)) for pattern in value for path in project.glob(pattern)}
    return {value} if name == "version_script" else set(value) if isinstance(value, list) else value


def differences(wanted, found):
    for name in sorted(wanted.keys() | found.keys()):
        here, there = wanted.get(name), found.get(name)
        if here == there:
            continue
        if isinstance(here, set) and isinstance(there, set):
            here, there = sorted(here - there), sorted(there - here)
        yield f"{name}: CMake has {here}, Android.bp has {there}"


def main(project, targets, compiler):
    lines = Path(targets).read_text(encoding="utf-8").splitlines()
    wanted = wanted_modules(project, dict(line.split("=", 1) for line in lines), compiler)
    modules = read_modules((project / "Android.bp").read_text(encoding="utf-8"))
    del modules["liborvex2_0_defaults"]  # worked into the others
    found = [f"{name}: {'unknown' if name in modules else 'missing'}" for name in wanted.keys() ^ modules.keys()]
    for name in wanted.keys() & modules.keys():
        module = {key: expanded(project, key, value) for key, value in modules[name].items() if key != "name"}
        found += [f"{name}.{difference}" for difference in differences(wanted[name], module)]
    if "/vendor/bin/sensor_hub_service\n" not in (project / "examples/sensor_hub_service.rc").read_text(encoding="utf-8"):
        found.append("sensor_hub_service.rc starts another program")
    print("\n".join(found))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1]), *sys.argv[2:]))
