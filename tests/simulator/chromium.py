"""Opens one page in headless Chromium and asks it by the DevTools protocol over a pipe."""
import json
import os
import subprocess
import tempfile

FLAGS = ("--headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking "
         "--disable-component-update --disable-sync --remote-debugging-pipe").split()


class Page:
    def __init__(self, program, file, width=1440, dark=False):
        self.folder = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        commands, self.to_browser = os.pipe()
        self.from_browser, answers = os.pipe()
        # The browser reads commands from descriptor 3 and writes to descriptor 4.
        script = f'TMPDIR={self.folder.name} exec "$@" 3<&{commands} 4>&{answers}'
        self.browser = subprocess.Popen(
            ["bash", "-c", script, "chromium", program, *FLAGS, "--user-data-dir=" + self.folder.name, "about:blank"],
            pass_fds=(commands, answers), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(commands)
        os.close(answers)
        self.buffer, self.number, self.session, self.events = b"", 0, None, []
        target = self.ask("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.ask("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Network"):
            self.ask(domain + ".enable")
        self.ask("Emulation.setDeviceMetricsOverride", width=width, height=900, deviceScaleFactor=1, mobile=False)
        self.ask("Emulation.setEmulatedMedia",
                 features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])
        self.ask("Page.navigate", url="file://" + str(file))
        self.run("new Promise(done => document.readyState === 'complete' ? done(1) : addEventListener('load', done))")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.browser.kill()
        self.browser.wait()
        os.close(self.to_browser)
        os.close(self.from_browser)
        self.folder.cleanup()

    def ask(self, method, **parameters):
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.to_browser, json.dumps(message).encode() + b"\0")
        while True:
            while b"\0" not in self.buffer:
                read = os.read(self.from_browser, 1 << 20)
                if not read:
                    raise RuntimeError("Chromium has ended")
                self.buffer += read
            text, self.buffer = self.buffer.split(b"\0", 1)
            answer = json.loads(text)
            if answer.get("id") == self.number:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]
            self.events.append(answer)

    def run(self, script):
        """The value of a script; a promise is waited for."""
        result = self.ask("Runtime.evaluate", expression=script, awaitPromise=True, returnByValue=True)
        if "exceptionDetails" in result:
            raise RuntimeError(f"{script}: {result['exceptionDetails']}")
        return result["result"].get("value")

    def errors(self):
        """Exceptions of the page, and addresses other than its own that it asked for."""
        return [event["params"] for event in self.events
                if event["method"] == "Runtime.exceptionThrown" or event["method"] == "Network.requestWillBeSent"
                and not event["params"]["request"]["url"].startswith(("file:", "data:"))]
