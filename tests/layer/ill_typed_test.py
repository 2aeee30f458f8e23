"""A handler that cannot be used gives one error, with a readable text. usage: ill_typed_test.py COMPILER INCLUDE..."""
import re
import subprocess
import sys

HANDLERS = {
    "no argument of a task has the type of this parameter": ["[](long double) {}", "[](orvex::Call*) {}",
        "[](std::optional<const char*>) {}", "{1}, [](std::vector<std::vector<bool>>) {}"],
    "a handler takes an argument by value or const&": ["[](std::string&) {}", "[](orvex::Arguments&&) {}"],
    "a handler takes orvex::Call& as its first parameter only": ["[](bool, orvex::Call&) {}"],
    "a handler returns void or what converts to orvex::Object": ["[](bool) { return 5; }"],
    "a handler is a function, or an object with one operator() that is not a template and can be called more than once": [
        "[](auto) {}", "Overloaded()", "&Overloaded::Member", "CalledOnce()"],
    "a handler that cannot be copied has to be moved": ["move_only"],
    "a value of this type cannot be written as JSON": [
        "[] { return orvex::Object{{\"a\", 'c'}}; }", "[] { return orvex::Object{{\"a\", std::filesystem::path()}}; }"],
    "no argument of a task has this type": ["[](const orvex::Arguments& all) { all.Get<float>(1); }"],
}
expected = sorted(text for text, handlers in HANDLERS.items() for _ in handlers)
calls = "".join(f'api.On("", {handler});\n' for handlers in HANDLERS.values() for handler in handlers)
program = f"""#include <orvex/service.h>
#include <filesystem>
struct Overloaded {{ void operator()(int); void operator()(bool); void Member(); }};
struct CalledOnce {{ void operator()(int) &&; }};
struct MoveOnly {{ std::unique_ptr<int> number; void operator()(int); }};
extern MoveOnly move_only;
void AddAll(orvex::Api& api) {{ {calls} }}"""
command = [sys.argv[1], "-std=c++17", "-fsyntax-only", "-x", "c++", "-", *(f"-I{folder}" for folder in sys.argv[2:])]
result = subprocess.run(command, input=program, capture_output=True, text=True, check=False)
errors = re.findall(r"error: .*orvex(?:::Object)?: ([^\"\n]*)|(error: .*)", result.stderr)
sys.exit(sorted(text or other for text, other in errors) != expected and result.stderr)
