"""Compares the compile time of a service with ten functions on the C++ layer with that of one on the raw interface.
Prints ratios of processor time, the best of several alternating rounds. usage: compile_time.py COMPILER ROUNDS"""
import pathlib
import resource
import subprocess
import sys
import tempfile

project = pathlib.Path(__file__).resolve().parent.parent
compiler, rounds = sys.argv[1], int(sys.argv[2])

# The types of each function's parameters: the C++ type, its code, and the raw service's expression for the answer.
TYPES = {
    "uint8_t": ("ORVEX_UINT8", "std::to_string(*{})"), "int16_t": ("ORVEX_INT16", "std::to_string(*{})"),
    "uint32_t": ("ORVEX_UINT32", "std::to_string(*{})"), "int64_t": ("ORVEX_INT64", "std::to_string(*{})"),
    "double": ("ORVEX_DOUBLE", "std::to_string(*{})"), "bool": ("ORVEX_BOOLEAN", 'std::string(*{} ? "true" : "false")'),
    "std::string": ("ORVEX_STRING", "('\"' + Escaped(*{}) + '\"')"),
    "std::vector<double>": ("ORVEX_VECTOR_OF(ORVEX_DOUBLE)", "std::to_string({}->size())"),
    "std::vector<int64_t>": ("ORVEX_VECTOR_OF(ORVEX_INT64)", "std::to_string({}->size())"),
    "std::vector<std::string>": ("ORVEX_VECTOR_OF(ORVEX_STRING)", "std::to_string({}->size())"),
}
FUNCTIONS = [["uint8_t", "int16_t", "uint32_t", "std::string"], ["std::vector<double>"], ["std::string"],
             ["uint8_t", "bool"], ["std::vector<int64_t>"], ["double", "int64_t"], ["std::vector<std::string>"],
             ["bool"], ["uint32_t", "uint32_t"], ["std::string", "double"]]


def layer_service():
    text = "#include <orvex/service.h>\nint main() {\n  orvex::Service service;\n  orvex::Api& api = service.Offer(0xa002, {1}, \"t\");\n"
    for number, types in enumerate(FUNCTIONS):
        parameters = ", ".join(f"const {t}& a{i}" for i, t in enumerate(types))
        members = ", ".join(f'{{"a{i}", a{i}{".size()" if "vector" in t else ""}}}' for i, t in enumerate(types))
        text += f'  api.On("f{number}", []({parameters}) {{ return orvex::Object{{{members}}}; }});\n'
    return text + "  return service.Run();\n}\n"


def raw_function(number, types):
    text = f"bool F{number}(const orvex_func_call_info_t& args, std::string& body) {{\n"
    for i, t in enumerate(types):
        text += f"  const auto* a{i} = Find<{t}>(args.typed_queue, {i + 1}, {TYPES[t][0]});\n"
    text += "  if (" + " || ".join(f"a{i} == nullptr" for i in range(len(types))) + ") return false;\n"
    answer = " + ".join(f'R"({"," if i else ""}"a{i}":)" + ' + TYPES[t][1].format(f"a{i}") for i, t in enumerate(types))
    return text + f"  body = {answer};\n  return true;\n}}\n"


FIND = """template <typename T>
const T* Find(const orvex_typed_map_t* queue, int key, orvex_data_type_t type) {
  if (queue == nullptr || queue->count(key) == 0 || queue->at(key).first != type) return nullptr;
  return &static_cast<const ParamValues<T>&>(*queue->at(key).second).value;
}
"""


def raw_service():
    """The raw example, with the ten functions in addition."""
    text = (project / "examples/raw_service.cpp").read_text()
    functions = FIND + "".join(raw_function(number, types) for number, types in enumerate(FUNCTIONS))
    calls = " || ".join(f'(args.func_name == "f{n}" && F{n}(args, call->result))' for n in range(len(FUNCTIONS)))
    for place, new in (("// Runs one task.", functions), ("  if (label != nullptr) {", f"  if ({calls}) {{\n  }} else ")):
        if text.count(place) != 1:
            sys.exit(f"examples/raw_service.cpp has no place '{place}'")
        text = text.replace(place, new + place)
    return text


def cpu_seconds(source, options):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run([*compiler.split(), "-std=c++17", "-O2", f"-I{project}/include", "-isystem", "/usr/include/jsoncpp",
                    *options, "-c", source, "-o", "/dev/null"], check=True)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


with tempfile.TemporaryDirectory() as folder:
    raw, layer, functions = (pathlib.Path(folder, name) for name in ("raw.cpp", "layer.cpp", "functions.cpp"))
    raw.write_text(raw_service())
    layer.write_text(layer_service())
    functions.write_text("#include <orvex/implementation.h>\n")
    separate = ["-DORVEX_SEPARATE_COMPILATION"]
    modes = {"raw": (raw, []), "layer, functions compiled apart": (layer, separate),
             "the layer's functions, once": (functions, separate), "layer, all in one file": (layer, [])}
    times = {mode: [] for mode in modes}
    for _ in range(rounds):
        for mode, arguments in modes.items():
            times[mode].append(cpu_seconds(*arguments))
print(f"{'compile time, ' + compiler:36} {'best':>6}   ratio")
for mode, measured in times.items():
    print(f"{mode:36} {min(measured):5.2f} s  {min(measured) / min(times['raw']):5.2f}")
