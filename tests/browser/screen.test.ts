import type { Locator, Page, Route } from "@playwright/test";
import { expect, languageMenu, slider, test } from "./fixtures";

/** The television's picture in the page. */

const panel = (page: Page): Locator => page.getByRole("main", { name: "Picture" });
const screen = (page: Page): Locator => panel(page).getByRole("group", { name: "Picture" });
const canvas = (page: Page): Locator => panel(page).locator("canvas");

/** The colour in the middle of the picture: red, green, blue. */
const colour = (page: Page): Promise<number[]> =>
  canvas(page).evaluate((element) => {
    const pixel = new OffscreenCanvas(1, 1).getContext("2d")!;
    pixel.drawImage(element as HTMLCanvasElement, -320, -180);
    return [...pixel.getImageData(0, 0, 1, 1).data.slice(0, 3)];
  });

/** A picture of one colour, made by the browser. */
async function picture(page: Page, colour: string): Promise<Buffer> {
  const address = await page.evaluate((fill) => {
    const drawn = document.createElement("canvas");
    [drawn.width, drawn.height] = [640, 360];
    const context = drawn.getContext("2d")!;
    context.fillStyle = fill;
    context.fillRect(0, 0, 640, 360);
    return drawn.toDataURL("image/jpeg");
  }, colour);
  return Buffer.from(address.split(",")[1]!, "base64");
}

interface Television {
  /** The newest frame, which the page gets in place of the host's. */
  frame: { tag: string; jpeg: Buffer } | null;
  /** Members of the reply to "screen" that differ from the host's. */
  shown: object;
  /** Times of the requests for a frame. */
  asked: number[];
  /** Of them, those that were answered with 304. */
  unchanged: number;
  prepare: (page: Page) => Promise<void>;
}

/** Stands between the page and the host, so that a test decides what the set shows. */
function television(): Television {
  const set: Television = {
    frame: null,
    shown: {},
    asked: [],
    unchanged: 0,
    async prepare(page) {
      await page.route("**/screen.jpg", async (route: Route) => {
        set.asked.push(Date.now());
        if (!set.frame) return route.continue();
        if (route.request().headers()["if-none-match"] === set.frame.tag) {
          set.unchanged++;
          return route.fulfill({ status: 304, headers: { etag: set.frame.tag } });
        }
        await route.fulfill({ headers: { etag: set.frame.tag }, contentType: "image/jpeg", body: set.frame.jpeg });
      });
      await page.routeWebSocket("**/jsonrpc", (socket) => {
        const server = socket.connectToServer();
        const screens = new Set<number>();
        socket.onMessage((text) => {
          const { id, method, params } = JSON.parse(String(text));
          if (method === "tv" && params.words[0] === "screen") screens.add(id);
          server.send(text);
        });
        server.onMessage((text) => {
          const message = JSON.parse(String(text));
          if (screens.delete(message.id)) message.result = { ...message.result, ...set.shown };
          socket.send(JSON.stringify(message));
        });
      });
    },
  };
  return set;
}

test("the host's own frame is shown, with the reason why there is no picture", async ({ open }) => {
  const page = await open("/#screen");
  await expect(canvas(page)).toHaveAttribute("data-frame", /^"\d+"$/);
  await expect(screen(page).getByRole("status")).toHaveText("No channel");
  expect(await colour(page)).toEqual([0, 0, 0]);
});

test("the panel says that the set is in standby, also in the menu's language", async ({ host, open }) => {
  const page = await open("/#screen");
  expect((await host.dtvctl("tv", "power", "standby")).code).toBe(0);
  await expect(screen(page).getByRole("status")).toHaveText("Standby");
  await languageMenu(page).selectOption("deu");
  await expect(page.locator(".screen-message")).toHaveText("Bereitschaft");
});

test("the picture changes, and one that has not changed is not sent again", async ({ open }) => {
  const set = television();
  const page = await open("/", { prepare: set.prepare });
  set.frame = { tag: '"1"', jpeg: await picture(page, "#ff0000") };
  set.shown = { picture: "channel", reason: undefined };
  const blue = await picture(page, "#0000ff");
  await page.getByRole("button", { name: "Picture" }).click();
  await expect(page).toHaveURL(/#screen$/);
  await expect.poll(async () => (await colour(page))[0]).toBeGreaterThan(200);
  await expect(screen(page).getByRole("status")).toHaveText("");
  await expect.poll(() => set.unchanged).toBeGreaterThan(3);
  set.frame = { tag: '"2"', jpeg: blue };
  await expect.poll(async () => (await colour(page))[2]).toBeGreaterThan(200);
  expect((await colour(page))[0]).toBeLessThan(50);
  await expect(canvas(page)).toHaveAttribute("data-frame", '"2"');
  const [first, last] = [set.asked[0]!, set.asked.at(-1)!];
  expect(set.asked.length).toBeLessThanOrEqual((last - first) / 100 + 2);
});

test("a page that shows another view does not ask for the picture", async ({ open }) => {
  const set = television();
  const page = await open("/#screen", { prepare: set.prepare });
  await expect.poll(() => set.asked.length).toBeGreaterThan(2);
  await page.getByRole("button", { name: "Remote control" }).click();
  await expect(panel(page)).toHaveCount(0);
  // A request that had begun may still arrive; twenty frames later there are no others.
  const before = set.asked.length;
  await page.waitForTimeout(2000);
  expect(set.asked.length).toBeLessThanOrEqual(before + 1);
});

test("banner, volume and source lie over the picture", async ({ open }) => {
  const set = television();
  const start = Math.floor(Date.now() / 1000) - 600;
  const time = (seconds: number): string => new Date(seconds * 1000).toISOString().replace(".000", "");
  set.shown = {
    picture: "channel",
    reason: undefined,
    volume: 33,
    mute: false,
    banner: {
      number: 7,
      name: "Harbour <b>TV</b>",
      present: { title: "News at the quay", start: time(start), seconds: 1200, progress: 0.5 },
      following: { title: "Tides", start: time(start + 1200), seconds: 600, progress: 0 },
    },
  };
  const page = await open("/#screen", { prepare: set.prepare });
  const banner = panel(page).locator(".screen-banner");
  await expect(banner).toContainText("7 Harbour <b>TV</b>");
  await expect(banner).toContainText("News at the quay");
  await expect(banner).toContainText("Tides");
  await expect(banner.getByRole("progressbar")).toHaveJSProperty("value", 0.5);
  await expect(panel(page).locator("[aria-live=polite]")).toContainText("Tides");
  await expect(panel(page).getByRole("progressbar", { name: "Volume" })).toHaveJSProperty("value", 33);
  for (const [reason, text] of Object.entries({
    no_signal: "No signal",
    scrambled: "Scrambled",
    radio: "Radio",
    blocked_channel: "Blocked: enter the PIN",
    blocked_event: "Blocked: enter the PIN",
    unavailable: "No picture: built without",
  })) {
    set.shown = { picture: "none", reason, source: "Antenna", problem: "built without" };
    await expect(screen(page).getByRole("status")).toHaveText(text);
    await expect(panel(page).locator(".screen-source")).toHaveText("Antenna");
  }
  set.shown = { picture: "none", reason: "source", source: "Games console" };
  await expect(screen(page).getByRole("status")).toHaveText("Games console");
});

test("the second picture has its place, its reason and the mark of the sound", async ({ open }) => {
  const set = television();
  const second = { source: "TV", channel: 5, name: "Harbour", region: { x: 1380, y: 60, width: 480, height: 270 } };
  const region = { x: 0, y: 0, width: 1920, height: 1080 };
  set.shown = { picture: "channel", reason: undefined, region, second, focus: "main" };
  const page = await open("/#screen", { prepare: set.prepare });
  const small = panel(page).getByRole("group", { name: "Second picture" });
  await expect(small).toContainText("5 Harbour");
  const sound = panel(page).getByRole("img", { name: "Sound" });
  await expect(sound).toHaveCount(1);
  await expect(small.getByRole("img", { name: "Sound" })).toHaveCount(0);
  const [whole, part] = await Promise.all([canvas(page).boundingBox(), small.locator(".screen-picture").boundingBox()]);
  expect(Math.abs(part!.x - whole!.x - whole!.width * (1380 / 1920))).toBeLessThan(3);
  expect(Math.abs(part!.y - whole!.y - whole!.height * (60 / 1080))).toBeLessThan(3);
  expect(Math.abs(part!.width - whole!.width / 4)).toBeLessThan(3);
  set.shown = { picture: "channel", reason: undefined, region, second: { ...second, reason: "scrambled" }, focus: "sub" };
  await expect(small.getByRole("status")).toHaveText("Scrambled");
  await expect(small.getByRole("img", { name: "Sound" })).toHaveCount(1);
  await expect(sound).toHaveCount(1);
  set.shown = { picture: "none", reason: "no_signal", source: "TV" };
  await expect(small).toHaveCount(0);
  await expect(panel(page).locator(".screen-message")).toHaveText("No signal");
});

test("the set's message lies over the picture, and the reasons are in the menu's language", async ({ open }) => {
  const set = television();
  set.shown = { picture: "none", reason: "scrambled", source: "TV", message: { text: "Tides begins at 20:15 <b>" } };
  const page = await open("/#screen", { prepare: set.prepare });
  const note = page.locator(".screen-note");
  await expect(note).toHaveText("Tides begins at 20:15 <b>");
  await languageMenu(page).selectOption("deu");
  for (const [reason, text] of Object.entries({
    scrambled: "Verschlüsselt",
    no_channel: "Kein Sender",
    blocked_channel: "Gesperrt: PIN eingeben",
    no_tuner: "Alle Tuner sind belegt",
    stopped: "Kein Bild",
  })) {
    set.shown = { picture: "none", reason, source: "TV" };
    await expect(page.locator(".screen-message")).toHaveText(text);
  }
  await expect(note).toHaveCount(0);
});

test("while the picture has the focus, the keyboard is the remote control", async ({ host, open }) => {
  await host.write("/tv/cast/volume/volume", 40);
  const page = await open("/#screen");
  await expect(slider(page)).toHaveValue("40");
  await canvas(page).click();
  await expect(screen(page)).toBeFocused();
  await page.keyboard.press("+");
  await expect(slider(page)).toHaveValue("41");
  await expect(panel(page).getByRole("progressbar", { name: "Volume" })).toHaveJSProperty("value", 41);
});

test("a page without the token says so, and does not ask for the picture", async ({ open }) => {
  const set = television();
  const page = await open("/#screen", { token: null, prepare: set.prepare });
  await expect(panel(page).getByRole("alert")).toContainText("shows the picture only with the token");
  await expect(canvas(page)).toHaveCount(0);
  expect(set.asked).toEqual([]);
});
