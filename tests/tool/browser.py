"""A headless Chromium, driven through its debugging pipe, so that a page can be tested as a reader sees it."""
import base64
import json
import os
import select
import shutil
import signal
import subprocess
import tempfile
import time

CHROMIUM = shutil.which("chromium") or shutil.which("chromium-browser")


class Browser:
    """Opens one page at a time, and keeps what it logs and requests."""

    def __init__(self):
        self.profile = tempfile.mkdtemp()
        commands, self.to_browser = os.pipe()
        self.from_browser, answers = os.pipe()
        script = f"exec 3<&{commands} 4>&{answers}; exec \"$@\""
        self.process = subprocess.Popen(
            ["bash", "-c", script, "bash", CHROMIUM, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
             "--no-first-run", "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--disable-dev-shm-usage", "--hide-scrollbars", f"--user-data-dir={self.profile}", "--remote-debugging-pipe",
             "about:blank"],
            pass_fds=(commands, answers), env={**os.environ, "TMPDIR": self.profile}, start_new_session=True,
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(commands)
        os.close(answers)
        self.buffer, self.number, self.session = b"", 0, None
        self.logged, self.requested, self.loaded = [], [], False
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(domain + ".enable")

    def close(self):
        os.killpg(self.process.pid, signal.SIGKILL)  # its helpers too, or they write to the profile again
        self.process.wait()
        os.close(self.to_browser)
        os.close(self.from_browser)
        shutil.rmtree(self.profile, ignore_errors=True)

    def receive(self, deadline):
        while b"\0" not in self.buffer:
            if not select.select([self.from_browser], [], [], max(0, deadline - time.monotonic()))[0]:
                raise TimeoutError("the browser does not answer")
            data = os.read(self.from_browser, 1 << 20)
            if not data:
                raise EOFError("the browser ended")
            self.buffer += data
        text, self.buffer = self.buffer.split(b"\0", 1)
        message = json.loads(text)
        method, parameters = message.get("method"), message.get("params", {})
        if method == "Runtime.consoleAPICalled" and parameters["type"] in ("error", "warning", "assert"):
            self.logged.append(parameters["args"])
        elif method == "Runtime.exceptionThrown":
            self.logged.append(parameters["exceptionDetails"])
        elif method == "Log.entryAdded":
            self.logged.append(parameters["entry"])
        elif method == "Network.requestWillBeSent":
            self.requested.append(parameters["request"]["url"])
        elif method == "Page.loadEventFired":
            self.loaded = True
        return message

    def call(self, method, **parameters):
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.to_browser, json.dumps(message).encode() + b"\0")
        deadline = time.monotonic() + 120
        while True:
            answer = self.receive(deadline)
            if answer.get("id") == self.number:
                if "error" in answer:
                    raise RuntimeError(answer["error"])
                return answer["result"]

    def open(self, path, width=1200, height=900, scripts=True, dark=False):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=width < 600)
        self.call("Emulation.setScriptExecutionDisabled", value=not scripts)
        self.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])
        self.logged, self.requested, self.loaded = [], [], False
        self.call("Page.navigate", url="file://" + os.path.realpath(path))
        deadline = time.monotonic() + 120
        while not self.loaded:
            self.receive(deadline)

    def evaluate(self, expression):
        return self.call("Runtime.evaluate", expression=expression, returnByValue=True)["result"].get("value")

    def press(self, key):
        codes = {"ArrowLeft": 37, "ArrowRight": 39}
        for kind in ("keyDown", "keyUp"):
            self.call("Input.dispatchKeyEvent", type=kind, key=key, code=key, windowsVirtualKeyCode=codes[key])

    def drag(self, from_x, to_x, y):
        mouse = lambda kind, x: self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, button="left", buttons=1, clickCount=1)
        mouse("mousePressed", from_x)
        mouse("mouseMoved", to_x)
        mouse("mouseReleased", to_x)

    def touch_drag(self, from_x, to_x, y):
        touch = lambda kind, points: self.call("Input.dispatchTouchEvent", type=kind, touchPoints=points)
        touch("touchStart", [{"x": from_x, "y": y}])
        for step in range(1, 6):
            touch("touchMove", [{"x": from_x + (to_x - from_x) * step / 5, "y": y}])
        touch("touchEnd", [])

    def screenshot(self, path, whole=False):
        data = self.call("Page.captureScreenshot", format="png", captureBeyondViewport=whole)["data"]
        with open(path, "wb") as file:
            file.write(base64.b64decode(data))
