"""The page of a guest in a browser, as its reader uses it: page_test.py HOST-TOOL CATALOGUE FOLDER [CLASS].

What is made lies in FOLDER afterwards, pictures of the page for people to look at among it."""
import base64
import json
import pathlib
import shutil
import subprocess
import sys
import unittest

from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

TOOL, CATALOGUE, FOLDER = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])
FLAGS = """--headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking
    --disable-component-update --disable-sync""".split()
STEPS = ["The module starts", "Sharing on", "Sharing on again, nothing has changed",
         "The catalogue changes", "Sharing on with the new catalogue", "Sharing off"]
MANY = 300


def tell(catalogue, guest, page):
    subprocess.run([TOOL, "run", "--catalogue", catalogue, "--guest", guest, "--report", page], check=True,
                   stdout=subprocess.DEVNULL)


def large_catalogue(folder):
    folder.mkdir()
    small = [f"{name}-16.png" for name in ("loom", "parcel", "lantern")]
    for name in small:
        shutil.copy(CATALOGUE / name, folder)
    apps = [{"bundleId": f"example.{n}", "name": f"Application {n}", "icons": [small[n % 3]],
             "documentTypes": [f"type{n}", "shared"], "defaultTypes": [f"type{n}"], "urlSchemes": [f"scheme{n}"]}
            for n in range(MANY)]
    apps[5]["documentTypes"].append("</script><img src=x onerror=fail()>")
    (folder / "catalogue.json").write_text(json.dumps({"applications": apps}))


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        shutil.rmtree(FOLDER, ignore_errors=True)
        FOLDER.mkdir(parents=True)
        options = webdriver.ChromeOptions()
        for flag in [*FLAGS, f"--user-data-dir={FOLDER / 'browser'}"]:
            options.add_argument(flag)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        cls.browser = webdriver.Chrome(options=options)
        tell(CATALOGUE, FOLDER / "guest", FOLDER / "example.html")
        # Programs of the machine open this type and this scheme before the host's applications come.
        with open(FOLDER / "guest" / "registry.txt", "a", encoding="utf-8") as registry:
            for key, value in ((".pgn", '@="chessfile"'), ("chessfile", ""), ("starling", '"URL Protocol"=""')):
                registry.write(f"\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes\\{key}]\n{value}\n")
        tell(CATALOGUE, FOLDER / "guest", FOLDER / "foreign.html")
        large_catalogue(FOLDER / "catalogue")
        tell(FOLDER / "catalogue", FOLDER / "guest-300", FOLDER / "large.html")

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        shutil.rmtree(FOLDER / "browser", ignore_errors=True)

    def open(self, name):
        self.browser.get((FOLDER / name).as_uri())

    def tearDown(self):  # whatever was done: nothing was fetched, nothing failed
        self.assertEqual(self.browser.get_log("browser"), [])
        for entry in self.browser.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                self.assertRegex(message["params"]["request"]["url"], "^(file|data|chrome):")

    def all(self, selector):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def texts(self, selector):
        return [each.get_property("innerText").strip() for each in self.all(selector)]

    def press(self, *keys):
        webdriver.ActionChains(self.browser).send_keys(*keys).perform()

    def view(self, name):
        self.all(f"[data-view={name}]")[0].click()

    def filter(self, text):
        field = self.all("#filter")[0]
        field.clear()
        field.send_keys(text)

    def marked(self):
        return {tile.get_property("innerText").split(" (Mac)")[0]: tile.get_attribute("data-mark")
                for tile in self.all("#menu .tile[data-mark]")}

    def row(self, name):
        for row in self.all("#opens tbody tr"):
            cells = [cell.get_property("innerText").strip() for cell in row.find_elements(By.CSS_SELECTOR, "th, td")]
            if cells[0] == name:
                return cells[1:]
        return None


class Reading(Page):
    def test_steps_by_key_slider_and_click(self):
        self.open("example.html")
        self.assertEqual(self.texts("#steps button > span:last-child"), STEPS)
        self.assertEqual(set(self.marked().values()), {"+"})
        self.assertEqual(len(self.marked()), 10)
        self.press(Keys.ARROW_RIGHT)
        self.assertEqual(self.texts("#step-title"), [STEPS[2]])
        self.assertEqual(self.marked(), {})
        self.all("#slider")[0].send_keys(Keys.ARROW_RIGHT)
        self.assertIn("Café Chess is now Café Chess Deluxe", self.texts("#changes")[0])
        self.all("#slider")[0].send_keys(Keys.ARROW_RIGHT)
        # Newcomer has the types of Tidepool and takes over its claims.
        self.assertEqual(self.marked(), {"Café Chess": "-", "Café Chess Deluxe": "+", "Ink Garden": "-", "Newcomer": "+",
                                         "Tidepool": "~"})
        self.assertIn("Faceless (no icon that the guest takes)", self.texts("#menu .note")[0])
        self.all("#steps button")[5].click()
        self.assertEqual(set(self.marked().values()), {"-"})
        self.press(Keys.ARROW_RIGHT)
        self.assertEqual(self.texts("#step-title"), ["Sharing off"])
        self.press(*[Keys.ARROW_LEFT] * 5)
        self.assertEqual(self.texts("#menu .tile"), [])

    def test_what_opens_and_why(self):
        self.open("foreign.html")
        self.view("opens")
        self.assertEqual(self.row(".pgn"), ["a program of the machine", "foreign", "Café Chess (Mac)"])
        self.assertEqual(self.row(".beat"), ["Metronome (Mac)", "claimed", "Metronome (Mac)"])
        self.assertEqual(self.row(".exe"), ["no application is known", "nobody", "–"])
        self.assertEqual(self.row("starling:")[1], "foreign")
        self.assertEqual(self.row("cafechess:"), ["Café Chess (Mac)", "claimed", "Café Chess (Mac)"])
        self.assertEqual(self.row("tidepool:")[1], "nobody")
        self.assertEqual(self.row("Postcard (Mac)"), ["postcard, tidepool"])
        self.assertIn("Loom (Mac)", self.texts("#opens .note")[0])

    def test_card(self):
        self.open("example.html")
        self.all('#menu [data-app="Parcel (Mac)"]')[0].send_keys(Keys.ENTER)
        self.assertEqual(self.texts("#card-title"), ["Parcel (Mac)"])
        self.assertEqual(self.texts("#card .icons h4"), ["16 × 16", "32 × 32", "48 × 48", "128 × 128"])
        self.assertEqual(self.texts("#card .icons .why"), ["the same", "refused: not 32 bits", "the same", "the same"])
        widths = [image.get_property("naturalWidth") for image in self.all("#card .icons img")]
        self.assertEqual(widths, [16, 16, 32, 48, 48, 128, 128])
        text = self.texts("#card")[0]
        for part in ("example.parcel", "FileDescription\nParcel (Mac)", "Parcel (Mac).lnk", "parcel_auto_file", "SupportedTypes"):
            self.assertIn(part, text)
        self.press(Keys.ESCAPE)
        self.assertEqual(self.all("#card[open]"), [])

    def test_registry_and_conversation(self):
        self.open("example.html")
        self.view("registry")
        self.filter("starmap")
        names = self.texts("#registry .value")
        self.assertIn("starmap_auto_file", " ".join(names))
        self.assertNotIn("pgn", " ".join(names))
        self.filter("")
        self.all("#steps button")[4].click()
        self.all("#registry .choice input")[0].click()
        self.assertEqual({each.get_attribute("data-mark") for each in self.all("#registry .value")}, {"+", "-", "~"})
        self.view("talk")
        self.filter("example.Newcomer")
        self.assertEqual(self.texts("#talk b"), ["list", "icons", "details"])
        self.all("#talk summary")[1].click()
        WebDriverWait(self.browser, 60).until(lambda _: self.all("#talk [open] .fields"))
        self.assertIn("bundleId\nexample.Newcomer", self.texts("#talk [open] .fields")[0])

    def test_large_guest(self):
        self.open("large.html")
        self.assertEqual(len(self.all("#menu .tile[data-mark='+']")), MANY)
        self.assertEqual({image.get_property("naturalWidth") for image in self.all("#menu .tile img")}, {16})
        self.filter("application 29")
        self.assertEqual(len(self.all("#menu .tile")), 11)
        self.view("opens")
        self.assertEqual(self.row(".type29")[1], "claimed")
        self.filter("onerror")
        self.assertEqual(self.row(".</script><img src=x onerror=fail()>")[2], "Application 5 (Mac)")
        for view in ("registry", "talk"):
            self.view(view)
            for _ in STEPS:
                self.press(Keys.ARROW_LEFT)
            self.filter("example.7" if view == "talk" else "scheme77")
            self.all("#steps button")[1].click()
            self.assertIn("77", " ".join(self.texts(f"#{view}")))


class Fitting(Page):
    def test_fits_every_width_and_names_every_control(self):
        for name in ("example", "large"):
            self.open(f"{name}.html")
            for width, height in ((375, 812), (800, 900), (1600, 1000)):
                for scheme in ("light", "dark") if name == "example" else ("light",):
                    self.look(width, height, scheme)
                    for view in ("menu", "opens", "registry", "talk", "card"):
                        if view == "card":
                            self.view("menu")
                            self.all("#menu .tile")[0].click()
                        else:
                            self.view(view)
                        self.assertEqual(self.browser.execute_script(TOO_WIDE, name), [], f"{name} {view} {width}")
                        if width != 800 and name == "example":
                            self.picture(f"{view}-{scheme}-{width}")
                    self.press(Keys.ESCAPE)
            for view in ("menu", "opens", "registry", "talk"):
                self.view(view)
                tree = self.browser.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
                controls = [node for node in tree if not node["ignored"] and node["role"]["value"] in
                            ("button", "slider", "checkbox", "searchbox", "DisclosureTriangle", "image")]
                self.assertGreater(len(controls), 12)
                for node in controls:
                    if node["role"]["value"] != "image":
                        self.assertNotEqual(node["name"]["value"].strip(), "", node)

    def look(self, width, height, scheme):
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                     {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                     {"features": [{"name": "prefers-color-scheme", "value": scheme}]})

    def picture(self, name):
        data = self.browser.execute_cdp_cmd("Page.captureScreenshot", {"format": "png"})["data"]
        (FOLDER / f"{name}.png").write_bytes(base64.b64decode(data))


# What reaches beyond the window or its own box sideways; of a large page just whether the page itself does.
TOO_WIDE = """
if (arguments[0] === "large") return document.documentElement.scrollWidth > innerWidth ? ["the page"] : [];
return [...document.querySelectorAll("body *")].filter(each => {
  const box = each.getBoundingClientRect();
  return each.checkVisibility() && !each.closest(".unseen, .skip, thead, #steps button > span, script") && box.width > 0 &&
    (box.right > innerWidth + 1 || box.left < -1 || each.scrollWidth > each.clientWidth + 1 && getComputedStyle(each).display !== "inline");
}).map(each => each.outerHTML.slice(0, 120));
"""

if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]], verbosity=1)
