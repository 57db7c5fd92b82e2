#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# timeline_page_test.py MADE_REPORTS: a timeline's page in a browser, against the comma-separated report of the same
# records. Exits with 77, saying so, where browser or driver are missing.
import collections, csv, datetime, math, os, pathlib, shutil, subprocess, sys, tempfile, time, unittest

try:
    from selenium import webdriver
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.chrome.service import Service
except ImportError:
    print("skipped: python3-selenium is not installed")
    sys.exit(77)
if not (shutil.which("chromium") and shutil.which("chromedriver")):
    print("skipped: chromium and chromium-driver are not installed")
    sys.exit(77)


def start(record): return int(record["timestamp_us"])
def end(record): return math.inf if record["open"] else start(record) + int(record["duration_us"])
def queue(record): return record["interface"] + " " + record["queue"]


class TimelinePage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.TemporaryDirectory()
        options = webdriver.ChromeOptions()
        for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--window-size=1300,900"):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.browser = webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)
        cls.addClassCleanup(cls.browser.quit)

    def open(self, count):
        directory = pathlib.Path(self.directory.name, str(count))
        if not directory.exists():
            directory.mkdir()
            subprocess.run([sys.argv[1], directory, str(count)], check=True, stdout=subprocess.DEVNULL,
                           env={**os.environ, "TZ": "HERE-5:45"})
        self.page = "file://" + str(directory / "page.html")
        self.browser.get("about:blank")
        self.browser.get(self.page)
        self.records = list(csv.DictReader((directory / "records.csv").read_text().splitlines()))
        for record in self.records:
            record["open"] = record["type"] == "start" or record is self.records[-1]
        # The queue that hurts most first: by drops, then by the time in which it was congested.
        pain = collections.defaultdict(lambda: [0, 0])
        for record in self.records:
            pain[queue(record)][0] += int(record["drops"] or 0)
            lasted = start(self.records[-1]) + 2_000_000 - start(record)  # up to the time of the report
            pain[queue(record)][1] += lasted if record["open"] else int(record["duration_us"])
        self.queues = sorted(pain, key=pain.get, reverse=True)

    def run_script(self, script, *arguments): return self.browser.execute_script(script, *arguments)
    def text(self, name): return self.run_script("return document.getElementById(arguments[0]).textContent", name)
    def show(self, begin, until):
        self.run_script(f"location.hash = 'from={begin}&to={until}'")
        time.sleep(0.3)  # the table follows when the window has stood still
    def view(self): return [int(part.split("=")[1]) for part in self.run_script("return location.hash").split("&")]
    def keys(self, *keys):
        ActionChains(self.browser).send_keys(*keys).perform()
        time.sleep(0.3)
    def tip(self):
        return self.run_script("""const list = document.querySelectorAll("#tip dd");
            return Object.fromEntries([...list].map(d => [d.previousSibling.textContent, d.textContent]))""")

    # Moves the pointer to a moment in a queue's row.
    def hover(self, name, moment, begin, until):
        plot = self.browser.find_elements("css selector", ".plot")[self.queues.index(name)]
        width = self.run_script("return arguments[0].clientWidth", plot)
        across = round((moment - begin) / (until - begin) * width - width / 2)
        ActionChains(self.browser).move_to_element_with_offset(plot, across, 5).perform()

    def test_hostile_names_are_text(self):
        self.open(150)
        shown = self.run_script("""return [...document.querySelectorAll(".label b")].map(
            name => [...name.children].map(part => part.textContent).join(" "))""")
        self.assertEqual(shown, self.queues)
        self.assertEqual(self.run_script("return [document.scripts.length, document.images.length]"), [2, 0])
        self.assertEqual(self.browser.get_log("browser"), [])
        for theme, is_dark in (("dark", True), ("light", False)):
            self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                         {"features": [{"name": "prefers-color-scheme", "value": theme}]})
            page, text = self.run_script("""const style = getComputedStyle(document.body);
                return [style.backgroundColor, style.color].map(c => Number(c.match(/\\d+/)[0]))""")
            self.assertTrue(page < 50 and text > 200 if is_dark else page > 200 and text < 50, theme)

    def test_window_lists_what_the_report_says(self):
        self.open(150)
        some = self.records
        windows = [(start(some[0]), end(some[-2])), (start(some[20]), end(some[60]))]
        windows += [(start(some[3]) - 900, start(some[3]))]
        windows += [(end(r), end(r) + 500) for r in some[5:8]]
        windows += [(end(r) - 30_000, end(r) - 1_000) for r in some if r["duration_us"] == "400000"]
        for begin, until in windows:
            with self.subTest(begin=begin, until=until):
                self.show(begin, until)
                listed = self.run_script("""return [...document.querySelectorAll("tbody tr")].map(
                    line => [...line.querySelectorAll("data")].map(cell => cell.value))""")
                expected = [list(r.values())[:-1] for r in some if start(r) <= until and end(r) >= begin]
                self.assertEqual(sorted(line[:len(some[0]) - 1] for line in listed), sorted(expected))
                self.assertTrue(self.text("summary").startswith(f"{len(expected)} record"))

    def test_hover_and_keys_tell_the_right_record(self):
        self.open(150)
        alone = [r for r in self.records if not r["open"] and not any(
            o is not r and o["type"] == "record" and queue(o) == queue(r) and start(o) <= end(r) and end(o) >= start(r)
            for o in self.records)]
        for record in alone[::19]:
            for margin in (10, 300_000):
                begin, until = start(record) - margin, end(record) + margin
                self.show(begin, until)
                self.hover(queue(record), (start(record) + end(record)) // 2, begin, until)
                tip = self.tip()
                moment = datetime.datetime.fromtimestamp(
                    start(record) // 10**6, datetime.timezone(datetime.timedelta(hours=5, minutes=45)))
                self.assertEqual(tip["Time"], f"{moment:%F %T}.{start(record) % 10**6:06}")
                self.assertEqual(tip["Length"], f"{int(record['queue_length_bytes']):,} B")
                self.assertEqual((tip["Queue"], tip["Drops"]), (record["queue"], record["drops"]))
        self.open(150)
        own = [r for r in self.records if queue(r) == self.queues[1]]
        self.run_script("document.getElementById('bar').lastElementChild.focus()")
        self.keys(Keys.TAB, Keys.TAB, Keys.ENTER, Keys.ENTER, Keys.ENTER)
        ActionChains(self.browser).key_down(Keys.SHIFT).send_keys(Keys.ENTER).key_up(Keys.SHIFT).perform()
        self.assertIn(f"{self.queues[1]}, record 2 of {len(own)}:", self.text("spoken"))
        self.assertIn(f"Length {int(own[1]['queue_length_bytes']):,} B", self.text("spoken"))
        self.keys("f")
        begin, until = self.view()
        self.assertTrue(begin < start(own[1]) and end(own[1]) < until < end(own[1]) + 5000)
        self.keys(Keys.ARROW_RIGHT, "-")
        self.assertGreater(self.view()[1], until)
        self.keys(Keys.HOME)
        self.assertTrue(self.text("summary").startswith("151 records of 9 queues"))

    def test_many_records_stay_fluid(self):
        self.open(100_000)
        begin, until = self.run_script("return [view.from, view.to]")
        self.hover(self.queues[0], (begin + until) // 2, begin, until)
        self.assertGreater(int(self.tip()["Records, zoom in for each"]), 3)
        self.assertIn("100,001 records are in view", self.text("many"))
        # Zooms in by half and out again, and moves, an event a frame.
        frames = self.browser.execute_async_script("""const done = arguments[0], plot = rows[3].plot, times = [];
            const { left, top } = plot.getBoundingClientRect();
            function frame(now) {
              times.push(now);
              if (times.length > 60) return done(times.slice(1).map((t, i) => t - times[i]));
              const turn = times.length % 3 === 2 ? { deltaX: 30 } : { deltaY: times.length % 20 < 10 ? -40 : 40 };
              plot.dispatchEvent(new WheelEvent("wheel",
                { ...turn, clientX: left + 300, clientY: top + 9, bubbles: true, cancelable: true }));
              requestAnimationFrame(frame);
            }
            requestAnimationFrame(frame)""")
        frames.sort()
        print(f"100,000 records: a frame takes {frames[30]:.1f} ms, the slowest {frames[-1]:.1f} ms")
        self.assertLess(frames[30], 250)

    def test_nothing_is_said_in_words(self):
        self.open(0)
        self.assertIn("No congestion", self.browser.find_element("tag name", "main").text)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
