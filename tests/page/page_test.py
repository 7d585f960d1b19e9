"""The operator's page in a browser, with a real broker and real agents.

usage: page_test.py BUILD-DIRECTORY [SCREENSHOT-DIRECTORY]

Runs in the sandbox. With a directory it leaves pictures of the page there.
"""

import json
import os
import subprocess
import sys
import tempfile
import time
import unittest

BROWSER = "/usr/bin/chromium"
DRIVER = "/usr/bin/chromedriver"
try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
except ImportError:
    webdriver = None
if webdriver is None or not os.path.exists(BROWSER) or not os.path.exists(DRIVER):
    print("skipped: install chromium chromium-driver python3-selenium")
    sys.exit(77)

ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
PAGE = os.path.join(ROOT, "programs", "fleet-page")
BUILD = os.path.realpath(sys.argv[1])
PICTURES = sys.argv[2] if len(sys.argv) > 2 else None
PATIENCE = 10

START_FILE = """#!/bin/sh
exec sleep 3600
"""


def eventually(condition):
    end = time.monotonic() + PATIENCE
    while True:
        try:
            value = condition()
        except Exception:  # of the browser, for an element that is replaced at this moment
            value = None
        if value or time.monotonic() > end:
            return value
        time.sleep(0.05)


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = tempfile.mkdtemp()
        os.chmod(cls.work, 0o755)
        cls.programs = []
        os.environ["PATH"] = f"{BUILD}:{ROOT}/tests/sandbox:/usr/sbin:{os.environ['PATH']}"
        cls.install_application("clock")
        cls.write(
            "broker.conf",
            "user root\nper_listener_settings true\nlistener 1883 127.0.0.1\nallow_anonymous true\n"
            f"listener 8080 127.0.0.1\nallow_anonymous true\nprotocol websockets\nhttp_dir {PAGE}\n"
            f"listener 8081 127.0.0.1\npassword_file {cls.path('passwords')}\nacl_file {cls.path('access')}\nprotocol websockets\nhttp_dir {PAGE}\n",
        )
        cls.write("access", "user ann\ntopic read #\n")
        subprocess.run(["mosquitto_passwd", "-b", "-c", cls.path("passwords"), "ann", "right"], check=True)
        cls.start("mosquitto", "-c", cls.path("broker.conf"))
        eventually(lambda: subprocess.run(["mosquitto_pub", "-t", "x", "-m", "x"], stderr=subprocess.DEVNULL).returncode == 0)
        cls.start("tarviod")
        for name in ("board-1", "board-2"):
            cls.write(
                f"{name}.conf",
                f"broker: 127.0.0.1\ntls: no\ndevice: {name}\ntags: lab\nrun_as: root\ndirectory: {cls.path(name)}\n",
            )
        cls.agents = {name: cls.start("tarvio-agent", "--config", cls.path(f"{name}.conf")) for name in ("board-1", "board-2")}
        options = webdriver.ChromeOptions()
        for option in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--window-size=1000,900"):
            options.add_argument(option)
        options.add_argument(f"--user-data-dir={cls.path('profile')}")
        options.binary_location = BROWSER
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.browser = webdriver.Chrome(service=Service(DRIVER), options=options)

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        for program in cls.programs:
            program.kill()
            program.wait()

    @classmethod
    def path(cls, name):
        return os.path.join(cls.work, name)

    @classmethod
    def write(cls, name, text):
        with open(cls.path(name), "w", encoding="utf-8") as file:
            file.write(text)

    @classmethod
    def start(cls, *words):
        program = subprocess.Popen(words, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        cls.programs.append(program)
        return program

    @staticmethod
    def install_application(name):
        information = "/usr/lib/opkg/info"
        for ending, text in (
            (".control", f"Package: {name}\nVersion: 1.0\n"),
            (".tqcontrol", "TqPackageCategory: Application\nTqPackageSubCategory: Application_Native\n"),
            (".list", ""),
            (".tqstartapp", START_FILE),
        ):
            with open(f"{information}/{name}{ending}", "w", encoding="utf-8") as file:
                file.write(text)
            os.chmod(file.name, 0o755)

    @staticmethod
    def publish(topic, value, retained=True):
        text = value if isinstance(value, str) else json.dumps(value)
        words = ["mosquitto_pub", "-V", "5", "-q", "1", "-t", topic, "-m", text]
        subprocess.run(words + (["-r"] if retained else []), check=True)

    def setUp(self):
        self.browser.set_window_size(1000, 900)
        self.browser.get("http://127.0.0.1:8080/index.html")
        self.find("#login button").click()
        self.assertTrue(eventually(lambda: self.text("#connection") == "Connected"), self.text("#connection"))

    def tearDown(self):
        # What the browser complains of, such as a script that is refused.
        severe = [each["message"] for each in self.browser.get_log("browser") if each["level"] == "SEVERE"]
        self.assertEqual([each for each in severe if "favicon" not in each], [])

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def text(self, selector):
        return self.find(selector).text

    def names(self):
        return [each.text for each in self.browser.find_elements(By.CSS_SELECTOR, "#board-list h3")]

    def picture(self, name):
        if PICTURES:
            self.browser.save_screenshot(os.path.join(PICTURES, name))

    def button(self, label):
        return self.find(f'button[aria-label="{label}"]')

    def is_available(self, label):
        return self.button(label).get_attribute("aria-disabled") != "true"

    def focused(self):
        return self.browser.switch_to.active_element

    def test_shows_the_boards(self):
        self.assertTrue(eventually(lambda: self.names() == ["board-1", "board-2"]), self.names())
        self.assertEqual(self.text("#count"), "2 of 2 boards, 2 online")
        self.assertTrue(eventually(lambda: "clock" in self.text('[data-key="board-1"]')))

    def test_filters_them(self):
        self.assertTrue(eventually(lambda: len(self.names()) == 2))
        for words, names in (
            ("board-2", ["board-2"]),
            ("tag:lab", ["board-1", "board-2"]),
            ("tag:x", []),
            ("offline", []),
            ("package:clock", ["board-1", "board-2"]),
            ("package:clock=1.0 board-1", ["board-1"]),
            ("package:clock=1.1", []),
            ("app:clock=running", []),
            ("app:clock=stopped", ["board-1", "board-2"]),
        ):
            field = self.find("#filter")
            field.clear()
            field.send_keys(words)
            self.assertTrue(eventually(lambda expected=names: self.names() == expected), words)

    def test_starts_and_stops_an_application(self):
        self.assertTrue(eventually(lambda: self.is_available("Start clock on board-1")))
        self.button("Start clock on board-1").click()
        self.assertTrue(eventually(lambda: "running" in self.text('[data-key="board-1"] .app')))
        self.assertTrue(eventually(lambda: "board-1: done" in self.text("#answers")))
        self.picture("boards.png")
        self.assertFalse(self.is_available("Start clock on board-1"))
        self.button("Stop clock on board-1").click()
        self.assertTrue(eventually(lambda: "stopped" in self.text('[data-key="board-1"] .app')))

    def test_is_used_with_the_keyboard(self):
        self.assertTrue(eventually(lambda: self.is_available("Start clock on board-1")))
        keys = webdriver.ActionChains(self.browser)
        self.assertEqual(self.focused().get_attribute("id"), "filter")
        keys.send_keys("board-1").perform()
        self.assertTrue(eventually(lambda: self.names() == ["board-1"]))
        keys.send_keys(Keys.TAB).perform()
        self.assertEqual(self.focused().get_attribute("aria-label"), "Start clock on board-1")
        keys.send_keys(Keys.ENTER).perform()
        self.assertTrue(eventually(lambda: "running" in self.text('[data-key="board-1"] .app')))
        self.assertEqual(self.focused().get_attribute("aria-label"), "Start clock on board-1")
        keys.send_keys(Keys.TAB).perform()
        keys.send_keys(Keys.SPACE).perform()
        self.assertTrue(eventually(lambda: "stopped" in self.text('[data-key="board-1"] .app')))

    def test_shows_that_a_board_has_gone(self):
        self.assertTrue(eventually(lambda: len(self.names()) == 2))
        self.agents["board-2"].kill()
        self.assertTrue(eventually(lambda: self.text("#count") == "2 of 2 boards, 1 online"))
        self.assertTrue(eventually(lambda: not self.is_available("Start clock on board-2")))
        type(self).agents["board-2"] = self.start("tarvio-agent", "--config", self.path("board-2.conf"))
        self.assertTrue(eventually(lambda: self.text("#count") == "2 of 2 boards, 2 online"))

    def test_shows_the_waves_of_a_rollout(self):
        def entry(board, state, message=""):
            return {"board": board, "state": state, "message": message, "tries": 0}

        rollout = {
            "id": "r1", "operator": "ann", "url": "https://server/clock.tbx", "state": "running", "started": 1,
            "waves": [
                [entry("board-1", "done"), entry("board-2", "failed", "no space left")],
                [entry("board-3", "waiting")],
            ],
        }
        self.publish("tarvio-fleet/v1/rollouts/r1", rollout)
        self.assertTrue(eventually(lambda: "wave 1: 1 of 2 done, 1 failed" in self.text("#rollouts")))
        self.assertIn("board-2: failed: no space left", self.text("#rollouts"))
        self.assertIn("running, begun by ann: https://server/clock.tbx", self.text("#rollouts"))
        self.picture("rollout.png")
        rollout["waves"][1] = [entry("board-3", "done")]
        self.publish("tarvio-fleet/v1/rollouts/r1", rollout)
        self.assertTrue(eventually(lambda: "wave 2: 1 of 1 done, 0 failed" in self.text("#rollouts")))
        self.publish("tarvio-fleet/v1/rollouts/r1", "")
        self.assertTrue(eventually(lambda: not self.find("#rollouts").is_displayed()))

    # A board that was taken over must not take the operator over.
    def test_shows_what_a_board_says_as_text(self):
        name = '<img src=x onerror="document.title=1">'
        self.publish("tarvio/v1/board-9/online", {"online": True})
        self.publish("tarvio/v1/board-9/apps", [{"name": name, "run_state": "running"}])
        self.assertTrue(eventually(lambda: name in self.text('[data-key="board-9"]')))
        self.assertEqual(self.browser.title, "Fleet")
        strange = {"toString": 1}
        for junk in (
            "{", "7", "null", '{"online":7}', "[[]]", "[null]", {"tags": [1, None]}, {"agent": strange}, [{"name": strange}],
            [{"name": "x", "state": strange, "run_state": strange}], [{"name": "x"}] * 2,
        ):
            for end in ("apps", "system", "packages"):
                self.publish(f"tarvio/v1/board-9/{end}", junk)
            self.publish("tarvio-fleet/v1/rollouts/r9", {"waves": junk, "state": strange, "started": strange} if isinstance(junk, list) else junk)
        self.find("#filter").send_keys("tag:x")
        self.assertTrue(eventually(lambda: self.names() == []))
        self.find("#filter").clear()
        self.find("#filter").send_keys("board-9")
        # The others go on.
        self.publish("tarvio/v1/board-9/system", {"agent": "after all"})
        self.assertTrue(eventually(lambda: "after all" in self.text('[data-key="board-9"]')))
        self.publish("tarvio-fleet/v1/rollouts/r9", "")
        for end in ("apps", "system", "packages", "online"):
            self.publish(f"tarvio/v1/board-9/{end}", "")

    # In whatever order its topics are cleared, and also if some are left.
    def test_forgets_a_board_that_is_no_more(self):
        self.publish("tarvio/v1/board-8/online", {"online": False})
        self.publish("tarvio/v1/board-8/apps", [{"name": "radio"}])
        self.assertTrue(eventually(lambda: "radio" in self.text('[data-key="board-8"]')))
        self.publish("tarvio/v1/board-8/online", "")
        self.publish("tarvio/v1/board-8/apps", "")
        self.publish("tarvio/v1/board-8/system", {"agent": "1.0"})
        self.publish("tarvio/v1/board-9/online", {"online": False})  # the last to arrive
        self.assertTrue(eventually(lambda: "board-9" in self.names()))
        self.assertNotIn("board-8", self.names())
        self.publish("tarvio/v1/board-8/system", "")
        self.publish("tarvio/v1/board-9/online", "")

    def test_keeps_one_connection(self):
        self.browser.execute_script("first = client; connect('', '')")
        self.assertTrue(eventually(lambda: self.browser.execute_script("return client !== first && client.connected")))
        self.assertFalse(self.browser.execute_script("return first.connected"))

    def test_announces_what_has_settled(self):
        announced = "return document.getElementById('announced').textContent"
        self.assertTrue(eventually(lambda: self.text("#count").startswith("2 of 2")))
        self.assertEqual(self.browser.execute_script(announced), "")
        self.assertTrue(eventually(lambda: self.browser.execute_script(announced) == self.text("#count")))
        roles = "return [...document.querySelectorAll('#count, ul, ol')].filter((each) => each.hasAttribute('role')).length"
        self.assertEqual(self.browser.execute_script(roles), 0)

    # In a topic of its own a board can say what it likes.
    def test_takes_no_answer_of_another_board(self):
        self.publish("tarvio/v1/board-7/online", {"online": True})
        self.publish("tarvio/v1/board-7/apps", [{"name": "radio", "run_state": "stopped"}])
        self.assertTrue(eventually(lambda: self.is_available("Start radio on board-7")))
        asked = subprocess.Popen(
            ["mosquitto_sub", "-V", "5", "-C", "1", "-t", "tarvio/v1/board-7/request", "-F", "%R %p"],
            stdout=subprocess.PIPE, text=True,
        )
        time.sleep(0.5)
        self.button("Start radio on board-7").click()
        topic, request = asked.communicate(timeout=PATIENCE)[0].split(" ", 1)
        answer = {"id": json.loads(request)["id"], "state": "done", "device": "board-7"}
        self.publish(topic.replace("board-7", "board-6"), answer, retained=False)
        self.publish(topic, dict(answer, id="another"), retained=False)
        self.publish(topic, dict(answer, state="failed", message="no radio", device="board-1"), retained=False)
        self.assertTrue(eventually(lambda: "board-7: failed: no radio" in self.text("#answers")))
        self.assertNotIn("done", self.text("#answers"))
        for end in ("apps", "online"):
            self.publish(f"tarvio/v1/board-7/{end}", "")

    def test_says_that_there_is_no_answer(self):
        self.publish("tarvio/v1/board-7/online", {"online": True})
        self.publish("tarvio/v1/board-7/apps", [{"name": "radio", "run_state": "stopped"}])
        self.assertTrue(eventually(lambda: self.is_available("Start radio on board-7")))
        self.browser.execute_script("requestSeconds = 1; againSeconds = 1")
        self.button("Start radio on board-7").click()
        self.assertTrue(eventually(lambda: "board-7: start radio: no answer" in self.text("#answers")))
        for end in ("apps", "online"):
            self.publish(f"tarvio/v1/board-7/{end}", "")

    def test_says_that_the_user_may_not_ask(self):
        self.publish("tarvio/v1/board-7/online", {"online": True})
        self.publish("tarvio/v1/board-7/apps", [{"name": "radio", "run_state": "stopped"}])
        self.browser.get("http://127.0.0.1:8081/index.html")
        self.find("#user").send_keys("ann")
        self.find("#password").send_keys("right")
        self.find("#login button").click()
        self.assertTrue(eventually(lambda: self.is_available("Start radio on board-7")))
        self.button("Start radio on board-7").click()
        self.assertTrue(eventually(lambda: "board-7: start radio: refused by the broker: " in self.text("#answers")))
        self.assertIn("Not authorized", self.text("#answers"))
        for end in ("apps", "online"):
            self.publish(f"tarvio/v1/board-7/{end}", "")

    # A board may end before it has written down what it was asked.
    def test_asks_again_until_there_is_an_answer(self):
        self.publish("tarvio/v1/board-7/online", {"online": True})
        self.publish("tarvio/v1/board-7/apps", [{"name": "radio", "run_state": "stopped"}])
        self.assertTrue(eventually(lambda: self.is_available("Start radio on board-7")))
        words = ["mosquitto_sub", "-V", "5", "-t", "tarvio/v1/board-7/request", "-F", "%R %p"]
        asked = subprocess.Popen(words + ["-C", "2"], stdout=subprocess.PIPE, text=True)
        time.sleep(0.5)
        self.browser.execute_script("againSeconds = 1")
        self.button("Start radio on board-7").click()
        first, second = [line.split(" ", 1) for line in asked.communicate(timeout=PATIENCE)[0].splitlines()]
        self.assertEqual(first[0], second[0])
        first, topic, second = json.loads(first[1]), first[0], json.loads(second[1])
        self.assertEqual(first["id"], second["id"])
        self.assertLess(second["expires_in"], first["expires_in"])
        self.publish(topic, {"id": first["id"], "state": "done", "device": "board-7"}, retained=False)
        self.assertTrue(eventually(lambda: "board-7: done" in self.text("#answers")))
        silence = subprocess.run(words + ["-W", "3"], stdout=subprocess.PIPE, text=True, check=False)
        self.assertEqual(silence.stdout, "")
        for end in ("apps", "online"):
            self.publish(f"tarvio/v1/board-7/{end}", "")

    def test_asks_nothing_without_a_connection(self):
        self.assertTrue(eventually(lambda: self.is_available("Start clock on board-1")))
        self.browser.execute_script("client.options.reconnectPeriod = 1000; client.stream.destroy()")
        self.assertTrue(eventually(lambda: self.text("#connection") == "Connection lost; trying again"))
        self.assertTrue(eventually(lambda: not self.is_available("Start clock on board-1")))
        self.button("Start clock on board-1").click()
        self.assertTrue(eventually(lambda: self.text("#connection") == "Connected"))
        self.assertTrue(eventually(lambda: self.is_available("Start clock on board-1")))
        self.assertEqual(self.text("#answer-list"), "")

    def test_says_that_the_password_is_wrong(self):
        self.browser.get("http://127.0.0.1:8081/index.html")
        self.find("#user").send_keys("ann")
        self.find("#password").send_keys("wrong")
        self.find("#login button").click()
        self.assertTrue(eventually(lambda: self.text("#connection").startswith("Not connected: ")), self.text("#connection"))
        self.assertIn("Not authorized", self.text("#connection"))
        self.assertTrue(self.find("#login").is_displayed())
        self.find("#password").send_keys("right")
        self.find("#login button").click()
        self.assertTrue(eventually(lambda: self.text("#connection") == "Connected"), self.text("#connection"))

    def test_fits_a_phone(self):
        self.browser.set_window_size(390, 800)
        self.assertTrue(eventually(lambda: len(self.names()) >= 2))
        self.picture("phone.png")
        long = "b" * 64
        self.publish(f"tarvio/v1/{long}/online", {"online": True})
        self.publish(f"tarvio/v1/{long}/apps", [{"name": "a" * 300, "state": "s" * 300}])
        self.assertTrue(eventually(lambda: "sss" in self.text(f'[data-key="{long}"]')))
        self.browser.execute_script(f'say("{"m" * 300}")')
        width = self.browser.execute_script("return document.documentElement.scrollWidth")
        self.assertLessEqual(width, self.browser.execute_script("return window.innerWidth"))
        for end in ("apps", "online"):
            self.publish(f"tarvio/v1/{long}/{end}", "")

    def test_is_light_and_dark(self):
        seen = {}
        for scheme in ("light", "dark"):
            self.browser.execute_cdp_cmd(
                "Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": scheme}]}
            )
            seen[scheme] = self.browser.execute_script("return getComputedStyle(document.body).backgroundColor")
            self.picture(f"{scheme}.png")
        self.assertNotEqual(seen["light"], seen["dark"])
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": []})

    def test_names_every_control(self):
        nameless = self.browser.execute_script(
            "return [...document.querySelectorAll('button, input')].filter((each) => "
            "!(each.getAttribute('aria-label') || each.labels?.[0]?.textContent || each.textContent).trim()).length"
        )
        self.assertEqual(nameless, 0)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
