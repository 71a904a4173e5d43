"""A headless Chromium, driven through its debugging pipe."""

import base64
import fcntl
import json
import os
import select
import subprocess
import tempfile


class Browser:
    """One page. To be used in a with statement, which ends the browser and removes its profile."""

    def __enter__(self):
        self._profile = tempfile.TemporaryDirectory(prefix="check-report-")
        try:
            self._start()
        except BaseException:
            self._profile.cleanup()
            raise
        return self

    def _start(self):
        theirs_to_read, ours_to_write = os.pipe()
        ours_to_read, theirs_to_write = os.pipe()
        # Out of the way of descriptors 3 and 4, at which the browser expects them.
        inherited = [fcntl.fcntl(fd, fcntl.F_DUPFD, 10) for fd in (theirs_to_read, theirs_to_write)]
        command = ["chromium", "--headless", "--remote-debugging-pipe", "--disable-gpu", "--no-first-run",
                   "--hide-scrollbars", "--disable-background-networking", "--disable-dev-shm-usage",
                   "--user-data-dir=" + self._profile.name]
        if os.geteuid() == 0:
            command.append("--no-sandbox")

        def place_descriptors():
            os.dup2(inherited[0], 3)
            os.dup2(inherited[1], 4)

        self._process = subprocess.Popen(command + ["about:blank"], preexec_fn=place_descriptors, pass_fds=(3, 4, *inherited),
                                         stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        for fd in (theirs_to_read, theirs_to_write, *inherited):
            os.close(fd)
        self._to = os.fdopen(ours_to_write, "wb", buffering=0)
        self._from = os.fdopen(ours_to_read, "rb")
        self._pending = b""
        self._last = 0
        self._session = None
        self.events = []
        pages = self.call("Target.getTargets")["targetInfos"]
        target = next(each["targetId"] for each in pages if each["type"] == "page")
        self._session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Network", "Log", "Runtime", "DOM", "Accessibility"):
            self.call(domain + ".enable")

    def __exit__(self, *_):
        try:
            self._to.close()
            self._process.wait(10)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        self._from.close()
        self._profile.cleanup()

    def call(self, method, **parameters):
        """The result of a method of the protocol. Events that come meanwhile are kept in `events`."""
        self._last += 1
        message = {"id": self._last, "method": method, "params": parameters}
        if self._session:
            message["sessionId"] = self._session
        self._to.write(json.dumps(message).encode() + b"\0")
        while True:
            answer = self._receive()
            if answer.get("id") == self._last:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']['message']}")
                return answer["result"]

    def _receive(self):
        while b"\0" not in self._pending:
            if not select.select([self._from], [], [], 60)[0]:
                raise RuntimeError("Chromium does not answer.")
            more = os.read(self._from.fileno(), 1 << 20)
            if not more:
                raise RuntimeError("Chromium ended unexpectedly.")
            self._pending += more
        text, self._pending = self._pending.split(b"\0", 1)
        message = json.loads(text)
        if "method" in message:
            self.events.append(message)
        return message

    def open(self, url):
        self.events.clear()
        self.call("Page.navigate", url=url)
        while not any(event["method"] == "Page.loadEventFired" for event in self.events):
            self._receive()

    def evaluate(self, expression):
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True)
        if "exceptionDetails" in result:
            raise RuntimeError(result["exceptionDetails"]["exception"].get("description", expression))
        return result["result"].get("value")

    def show(self, width, height, scheme="light"):
        """Sets the window's size in CSS pixels, and the colour scheme."""
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)
        self.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    def picture(self, file, whole_page=False):
        data = self.call("Page.captureScreenshot", format="png", captureBeyondViewport=whole_page,
                         **({"clip": {**self._page_size(), "x": 0, "y": 0, "scale": 1}} if whole_page else {}))["data"]
        with open(file, "wb") as stream:
            stream.write(base64.b64decode(data))

    def _page_size(self):
        size = self.call("Page.getLayoutMetrics")["cssContentSize"]
        return {"width": size["width"], "height": size["height"]}

    def pdf(self):
        return base64.b64decode(self.call("Page.printToPDF", printBackground=True)["data"])
