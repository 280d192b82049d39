import type { Locator, Page } from "@playwright/test";
import { execFile } from "node:child_process";
import { mkdir } from "node:fs/promises";
import { join } from "node:path";
import { promisify } from "node:util";
import { tv } from "./broadcast";
import { expect, test, tooWide } from "./fixtures";
import { film, many, mediaFakes, played, stick, type Fakes } from "./media-fakes";

/** The views of media and of the home network, with a set whose replies about media the tests choose. */

const media = (page: Page): Locator => page.getByRole("main", { name: "Media" });
const list = (page: Page): Locator => media(page).getByRole("list", { name: "Media" });
const rows = (page: Page): Locator => list(page).getByRole("listitem");
const kind = (page: Page, name: string): Locator =>
  media(page).getByRole("group", { name: "Kind" }).getByRole("button", { name, exact: true });
const player = (page: Page): Locator => page.getByRole("region", { name: "Player" });
const photoBar = (page: Page): Locator => page.getByRole("region", { name: "Photo", exact: true });
const details = (page: Page): Locator => page.getByRole("complementary", { name: "Details" });

const fewRows = 60;
const thumbnailRequests = ({ commands }: Fakes): string[] => commands.filter((each) => each.startsWith("media thumbnails"));
const pathsOf = (command: string): string[] => command.match(/\/usb\/sda1\/.*?\.\w{3}(?= |$)/g) ?? [];

test("10,000 photos scroll without long tasks, and are read in pages as they are seen", async ({ open }) => {
  const fakes = mediaFakes();
  const page = await open("/#media", { prepare: fakes.prepare });
  await kind(page, "Photos").click();
  // A camera's time has no zone: it is the same in the zones of the set and of the browser.
  await expect(rows(page).first()).toContainText("photo 00000.jpg");
  await expect(rows(page).first()).toContainText("Aug 1, 2026, 10:30");
  await expect(media(page).getByRole("navigation", { name: "Folder" }).getByRole("status")).toHaveText(String(many));
  expect(await rows(page).count()).toBeLessThan(fewRows);
  const pages = () => fakes.commands.filter((each) => each.startsWith(`media list photo`));
  expect(pages().length).toBeLessThan(4);

  // Through the whole list in 100 steps, as a viewer drags the scroll bar. What a step takes is the page's own time on
  // the processor, which does not depend on what else the machine does; it has several tasks.
  const session = await page.context().newCDPSession(page);
  await session.send("Performance.enable", { timeDomain: "threadTicks" });
  const taken = async (): Promise<number> => {
    const { metrics } = await session.send("Performance.getMetrics");
    return metrics.find(({ name }) => name === "TaskDuration")!.value * 1000;
  };
  let longest = 0;
  for (let step = 1; step <= 100; step++) {
    const before = await taken();
    await page.evaluate(async (part) => {
      const scroller = document.querySelector(".media .row-list")!;
      scroller.scrollTop = scroller.scrollHeight * part;
      for (let frame = 0; frame < 2; frame++) await new Promise(requestAnimationFrame);
    }, step / 100);
    longest = Math.max(longest, (await taken()) - before);
  }
  expect(longest, "ms of the longest step").toBeGreaterThan(0);
  expect(longest, "ms of the longest step").toBeLessThan(100);
  test.info().annotations.push({ type: "longest step", description: `${longest.toFixed(1)} ms` });
  await expect(rows(page).last()).toContainText(`photo ${String(many - 1).padStart(5, "0")}.jpg`);
  expect(await rows(page).count()).toBeLessThan(fewRows);
  for (const command of pages()) expect(Number(command.split(" ").at(-1))).toBeLessThanOrEqual(200);
});

test("the page requests thumbnails of visible rows only, at most 24 at once, and pending ones again", async ({ open }) => {
  const fakes = mediaFakes();
  fakes.pending.set(`${stick}/Photos/photo 00001.jpg`, 2);
  const page = await open("/#media", { prepare: fakes.prepare });
  await kind(page, "Photos").click();
  await expect(rows(page).nth(1).locator("img")).toBeVisible();
  const asked = thumbnailRequests(fakes).map(pathsOf);
  expect(Math.max(...asked.map((paths) => paths.length))).toBeLessThanOrEqual(24);
  expect(asked.flat().filter((path) => path.endsWith("00001.jpg"))).toHaveLength(3);
  expect(asked.flat().filter((path) => path.endsWith("00000.jpg"))).toHaveLength(1);
  expect(new Set(asked.flat()).size).toBeLessThan(fewRows);

  // Of 300 pictures the first ones are forgotten, and asked for again.
  for (const at of [0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9, 1]) {
    const before = thumbnailRequests(fakes).length;
    await page.locator(".media .row-list").evaluate((element, part) => element.scrollTo(0, element.scrollHeight * part), at);
    await expect.poll(() => thumbnailRequests(fakes).length).toBeGreaterThan(before);
    await expect(rows(page).nth(10).locator("img")).toHaveCount(1);
  }
  const all = () => thumbnailRequests(fakes).flatMap(pathsOf);
  const forgets = new Set(all()).size > 300;
  await page.locator(".media .row-list").evaluate((element) => element.scrollTo(0, 0));
  await expect(rows(page).nth(0).locator("img")).toBeVisible();
  expect(all().filter((path) => path.endsWith("00000.jpg"))).toHaveLength(forgets ? 2 : 1);

  // A file without a picture keeps its icon, and is not asked for again.
  await kind(page, "Music").click();
  await expect(rows(page).first()).toContainText("North Wind");
  await expect.poll(() => all().filter((path) => path.endsWith(".mp3")).length).toBe(1);
  await expect(rows(page).first().locator("svg").first()).toBeVisible();
});

test("the keyboard leads from the search to the list, through it, into folders and back", async ({ open }) => {
  const fakes = mediaFakes();
  const page = await open("/#media", { prepare: fakes.prepare });
  await expect(rows(page)).toHaveCount(3);
  await page.keyboard.press("/");
  await expect(media(page).getByRole("searchbox")).toBeFocused();
  await page.keyboard.press("ArrowDown");
  await expect(page.locator(":focus")).toHaveAccessibleName(/^Films, Folder/);
  await page.keyboard.press("End");
  await expect(page.locator(":focus")).toHaveAccessibleName(/^Photos, Folder/);
  await page.keyboard.press("Enter");
  await expect(media(page).getByText("Photos", { exact: true }).last()).toHaveAttribute("aria-current", "page");
  await expect(rows(page).first()).toContainText("photo 00000.jpg");

  // In tiles, the arrow keys move in both directions.
  await media(page).getByRole("button", { name: "Grid" }).click();
  await expect(list(page).getByRole("button", { name: /^photo 00007.jpg/ })).toBeVisible();
  await list(page).getByRole("button", { name: /^photo 00000.jpg/ }).focus();
  await page.keyboard.press("ArrowRight");
  await expect(page.locator(":focus")).toHaveAccessibleName(/^photo 00001.jpg/);
  await page.keyboard.press("ArrowDown");
  const below = await page.locator(":focus").getAttribute("aria-label");
  const columns = Number(/photo (\d+)/.exec(below!)![1]) - 1;
  expect(columns).toBeGreaterThan(1);
  await page.keyboard.press("ArrowUp");
  await expect(page.locator(":focus")).toHaveAccessibleName(/^photo 00001.jpg/);
  for (let step = 1; step < columns; step++) await page.keyboard.press("ArrowRight");
  await expect(page.locator(":focus")).toHaveAccessibleName(new RegExp(`^photo 0000${columns}.jpg`));
  await page.keyboard.press("End");
  await expect(page.locator(":focus")).toHaveAccessibleName(/^photo 099\d\d.jpg/);

  // Details by "i"; Escape closes them, and then leaves the folder.
  await page.keyboard.press("i");
  await expect(details(page)).toContainText("4000 × 3000 · 3.4 MB");
  await page.keyboard.press("Escape");
  await expect(details(page)).toHaveCount(0);
  await page.keyboard.press("Escape");
  await expect(rows(page)).toHaveCount(1); // three folders in a row of tiles
  await expect(list(page).getByRole("button", { name: /^Films/ })).toBeVisible();
});

test("search, kinds, the order and favourites", async ({ open }) => {
  const fakes = mediaFakes();
  const page = await open("/#media", { prepare: fakes.prepare });
  await media(page).getByRole("searchbox").fill("harbour");
  await expect(rows(page)).toHaveCount(1);
  await expect(rows(page)).toContainText("The Harbour");
  await expect(rows(page)).toContainText("1:23:45");
  expect(fakes.commands.some((each) => each.startsWith("media search harbour all 0 "))).toBe(true);
  await media(page).getByRole("searchbox").fill("nothing like it");
  await expect(list(page)).toContainText("The list is empty");
  await page.keyboard.press("Escape");
  await expect(rows(page)).toHaveCount(3);

  await kind(page, "Music").click();
  await expect(rows(page)).toHaveCount(1);
  await expect(rows(page)).toContainText("The Example Band · Weather · 2019");
  await media(page).getByRole("combobox", { name: "Sort by" }).selectOption("size");
  await expect.poll(() => fakes.commands.some((each) => each.startsWith(`media list music ${stick} size 0 `))).toBe(true);

  const star = rows(page).getByRole("button", { name: "Favourite: North Wind" });
  await star.click();
  await expect(star).toHaveAttribute("aria-pressed", "true");
  expect(fakes.commands).toContain(`media favourite ${stick}/Music/north wind.mp3 on`);
  fakes.refused.set("media favourite", "the change could not be saved; see the set's log");
  await star.click();
  await expect(media(page).getByRole("alert")).toHaveText("the change could not be saved; see the set's log");
  await expect(star).toHaveAttribute("aria-pressed", "true");
});

test("a stick is inserted, scanned and removed", async ({ open }) => {
  const fakes = mediaFakes();
  fakes.inserted = false;
  const page = await open("/#media", { prepare: fakes.prepare });
  await expect(media(page)).toContainText("No USB stick is inserted");
  const folder = media(page).getByRole("combobox", { name: "Folder to insert as a USB stick" });
  fakes.refused.set("stick insert", 'the folder "/none" cannot be found');
  await folder.fill("/none");
  await folder.press("Enter");
  await expect(media(page).getByRole("alert")).toHaveText('the folder "/none" cannot be found');
  fakes.refused.clear();
  fakes.stick.scan = { state: "running", files: 4200, of: many, progress: 0.42, left_out: 0 };
  await folder.fill("/home/user/holiday");
  await folder.press("Enter");
  await expect(media(page).getByRole("alert")).toHaveCount(0);
  expect(fakes.commands).toContain("stick insert /home/user/holiday");
  await expect(media(page).getByRole("progressbar", { name: "Progress" })).toHaveAttribute("value", "0.42");
  await expect(media(page)).toContainText(`4200 / ${many}`);
  await media(page).getByRole("button", { name: "Cancel" }).click();
  await expect(media(page)).toContainText("Cancelled");
  expect(fakes.commands).toContain("media scan /dev/sda1 cancel");
  await media(page).getByRole("button", { name: "Read the files again" }).click();
  await expect(media(page)).toContainText("The files are being read");
  fakes.stick.scan = { state: "done", files: many, of: many, progress: 1, left_out: 2 };
  await media(page).getByText("Left out: 2").click();
  await expect(media(page)).toContainText("the picture is damaged");
  await media(page).getByRole("button", { name: "Remove: HOLIDAY" }).click();
  await expect(media(page)).toContainText("No USB stick is inserted");
  await expect(list(page)).toHaveCount(0);
  expect(fakes.commands).toContain("stick remove /dev/sda1");
});

test("the bar of the player: position, chapters, tracks, speed and why it failed", async ({ open }) => {
  const fakes = mediaFakes();
  const page = await open("/#media", { prepare: fakes.prepare });
  await expect(list(page)).toBeVisible();
  await expect(player(page)).toHaveCount(0);
  await kind(page, "Videos").click();
  await list(page).getByRole("button", { name: /^The Harbour, .*Video$/ }).click();
  expect(fakes.commands).toContain(`player play ${String(film["path"])}`);
  await expect(player(page)).toContainText("Playing");
  await expect(player(page)).toContainText("1:01 / 1:23:45");

  await player(page).getByRole("slider", { name: "Position" }).fill("3000");
  await expect(player(page)).toContainText("50:00 / 1:23:45");
  expect(fakes.commands).toContain("player seek 3000.0");
  await player(page).getByRole("button", { name: "Pause" }).click();
  await expect(player(page)).toContainText("Paused");
  await player(page).getByRole("button", { name: "Resume" }).click();
  await expect(player(page).getByRole("button", { name: "Pause" })).toBeVisible();

  const sound = player(page).getByRole("combobox", { name: "Sound" });
  await expect(sound.getByRole("option")).toHaveText(["English, Stereo", "German"]);
  await sound.selectOption("German");
  await expect(sound).toHaveValue("2");
  await player(page).getByRole("combobox", { name: "Subtitles" }).selectOption("French");
  await player(page).getByRole("combobox", { name: "Chapter" }).selectOption("Chapter 2");
  await player(page).getByRole("combobox", { name: "Repeat" }).selectOption("Folder");
  for (const name of ["Previous", "10 seconds back", "30 seconds forward", "Next"]) {
    await player(page).getByRole("button", { name }).click();
  }
  const sent = ["audio 2", "subtitle 1", "chapter 2", "repeat folder", "previous", "seek -10", "seek +30", "next"];
  await expect.poll(() => sent.filter((words) => !fakes.commands.includes(`player ${words}`))).toEqual([]);

  // What the set refuses is not shown as chosen.
  fakes.refused.set("player speed", "the speed is 0.5 to 2");
  const speed = player(page).getByRole("combobox", { name: "Speed" });
  await speed.selectOption("8");
  await expect(media(page).getByRole("alert")).toHaveText("the speed is 0.5 to 2");
  await expect(speed).toHaveValue("1");

  fakes.player = { ...played(), state: "failed", reason: "the stick was removed" };
  await expect(player(page)).toContainText("Failed");
  await expect(player(page)).toContainText("the stick was removed");
  await player(page).getByRole("button", { name: "Picture" }).click();
  await expect(page).toHaveURL(/#screen$/);
  await player(page).getByRole("button", { name: "Stop" }).click();
  await expect(player(page)).toHaveCount(0);
});

test("the bar of a photo", async ({ open }) => {
  const fakes = mediaFakes();
  const page = await open("/#media", { prepare: fakes.prepare });
  await kind(page, "Photos").click();
  await list(page).getByRole("button", { name: /^photo 00000.jpg, .*Photo$/ }).click();
  await expect(photoBar(page)).toContainText(`1 / ${many} · 4000 × 3000`);
  await photoBar(page).getByRole("button", { name: "Next" }).click();
  await expect(photoBar(page)).toContainText("photo 00001.jpg");
  await photoBar(page).getByRole("button", { name: "Rotate" }).click();
  await photoBar(page).getByRole("button", { name: "Larger" }).click();
  await expect(photoBar(page)).toContainText("125 %");
  const show = photoBar(page).getByRole("button", { name: "Slide show" });
  await show.click();
  await expect(show).toHaveAttribute("aria-pressed", "true");
  expect(fakes.commands).toEqual(
    expect.arrayContaining(["photo next", "photo rotate", "photo zoom 125", "photo slideshow on"]),
  );
  await photoBar(page).getByRole("button", { name: "Close" }).click();
  await expect(photoBar(page)).toHaveCount(0);
});

test("the home network: servers, their folders, playing, downloading, and the set as a renderer", async ({ open }) => {
  const fakes = mediaFakes();
  const page = await open("/#home-network", { prepare: fakes.prepare });
  const home = page.getByRole("main", { name: "Home network" });
  await expect(home).toContainText("No media servers yet: search for them");
  fakes.servers = [
    { id: 3, name: "Study", udn: "uuid:1", address: "192.0.2.7", online: true, wakable: false },
    { id: 4, name: "Cellar", udn: "uuid:2", address: "192.0.2.9", online: false, wakable: true },
  ];
  await home.getByRole("switch", { name: "Search for servers" }).check();
  const servers = home.getByRole("list", { name: "Servers" }).getByRole("listitem");
  await expect(servers).toHaveCount(2);
  await expect(servers.nth(0)).toContainText("Reachable");
  await expect(servers.nth(1)).toContainText("Not reachable");
  await servers.nth(1).getByRole("button", { name: "Wake" }).click();

  await servers.nth(0).getByRole("button", { name: /^Study/ }).click();
  const files = home.getByRole("region", { name: "Study" });
  await expect(files.getByRole("listitem").filter({ hasText: "Summer in the mountains" })).toContainText("1:02:05");
  await files.getByRole("button", { name: /^Summer in the mountains, .*Video$/ }).click();
  await expect(player(page)).toContainText("Summer in the mountains");
  await files.getByRole("button", { name: "Download: Summer in the mountains" }).click();
  const download = home.getByRole("region", { name: "Download" });
  await expect(download.getByRole("progressbar")).toHaveAttribute("value", "0.1");
  await expect(download).toContainText("70.0 MB / 700.0 MB");
  await download.getByRole("button", { name: "Cancel" }).click();
  await expect(download).toContainText("Cancelled");
  await files.getByRole("button", { name: /^Concerts, .*Folder$/ }).click();
  await expect(files).toContainText("The list is empty");
  await files.getByRole("navigation", { name: "Folder" }).getByRole("button", { name: "Study" }).click();
  await files.getByRole("searchbox").fill("train");
  await expect(files.getByRole("button", { name: /^Slow Train, .*The Example Band · Live.*Music$/ })).toBeVisible();
  await expect(files.getByRole("button", { name: /^Concerts/ })).toHaveCount(0);

  await home.getByRole("switch", { name: "Play what other devices send" }).check();
  fakes.renderer = { ...fakes.renderer, controller: "192.0.2.44", url: "http://192.0.2.44/clip.mp4", state: "playing" };
  await expect(home).toContainText("Sent by 192.0.2.44");
  await expect(home).toContainText("http://192.0.2.44/clip.mp4");
  await servers.nth(1).getByRole("button", { name: "Forget: Cellar" }).click();
  await expect(servers).toHaveCount(1);
  const sent = ["servers search on", "servers wake 4", "servers play 3 8", "servers download 3 8", "servers download 3 8 cancel"];
  expect(fakes.commands).toEqual(expect.arrayContaining([...sent, "renderer on", "servers forget 4"]));

  fakes.refused.set("servers", "the home network is off");
  await expect(home.getByRole("alert")).toHaveText("the home network is off");
});

test("a list that the set refuses says why, and is read once it can be", async ({ open }) => {
  const fakes = mediaFakes();
  fakes.refused.set("media list", "the library is being opened");
  const page = await open("/#media", { prepare: fakes.prepare });
  await expect(media(page).getByRole("alert")).toHaveText("the library is being opened");
  fakes.refused.clear();
  await expect(rows(page)).toHaveCount(3);
  await expect(media(page).getByRole("alert")).toHaveCount(0);
});

for (const width of [360, 390]) {
  test.describe(`at a width of ${width}`, () => {
    test.use({ viewport: { width, height: 780 } });

    test("media and home network fit in every language", async ({ open }) => {
      const fakes = mediaFakes();
      fakes.player = played();
      fakes.servers = [{ id: 3, name: "Study", udn: "uuid:1", address: "192.0.2.7", online: false, wakable: true }];
      const page = await open("/#media", { prepare: fakes.prepare });
      for (const [language, tag] of Object.entries({ deu: "de", fra: "fr", spa: "es", tur: "tr", eng: "en" })) {
        await page.locator("select.language").selectOption(language);
        await expect(page.locator("html")).toHaveAttribute("lang", tag);
        for (const view of ["media", "home-network"]) {
          await page.evaluate((id) => (location.hash = id), view);
          await expect(page.locator(view === "media" ? ".media-row" : ".server").first()).toBeVisible();
          await expect(page.locator(".player")).toBeVisible();
          // The choices of the player and the kinds scroll in their own line.
          const wide = (await tooWide(page)).filter((each) => !/player-choice|select|SPAN\.quiet|OPTION/i.test(each));
          expect(wide, `${view} ${language}`).toEqual([]);
        }
      }
    });
  });
}

// ---- With the virtual television's own media

const ffmpeg = (...args: string[]) => promisify(execFile)("ffmpeg", ["-v", "error", "-y", ...args]);

/** A folder with a film of 30 s that has two sound tracks, and with three photos. */
async function makeStick(files: string): Promise<string> {
  const folder = join(files, "holiday");
  await mkdir(folder);
  const inputs = ["testsrc=d=30:s=320x180:r=25", "sine=440:d=30", "sine=880:d=30"].flatMap((each) => ["-f", "lavfi", "-i", each]);
  const tracks = ["-map", "0", "-map", "1", "-map", "2", "-metadata:s:a:0", "language=eng", "-metadata:s:a:1", "language=deu"];
  await ffmpeg(...inputs, ...tracks, "-metadata", "title=The Harbour", join(folder, "harbour.mkv"));
  for (const colour of ["blue", "green", "red"]) {
    await ffmpeg("-f", "lavfi", "-i", `color=${colour}:s=640x480`, "-frames:v", "1", join(folder, `${colour}.jpg`));
  }
  return folder;
}

test("a film and photos of a real stick, from its insertion to its removal", async ({ host, open }) => {
  test.slow();
  const folder = await makeStick(host.files);
  const page = await open("/#media");
  await page.getByText("Subscriptions").click();
  for (const name of ["usb_detect", "cbrowser_playback"]) await page.getByRole("checkbox", { name, exact: true }).check();
  const path = media(page).getByRole("combobox", { name: "Folder to insert as a USB stick" });
  await path.fill(folder);
  await path.press("Enter");
  await expect(media(page)).toContainText("Photos: 3");
  await expect(page.getByRole("list", { name: "Notifications", exact: true })).toContainText("usb_detect");
  await expect(rows(page)).toHaveCount(4);
  await expect(rows(page).locator("img")).toHaveCount(4);

  await list(page).getByRole("button", { name: /^The Harbour, .*Video$/ }).click();
  await expect(player(page)).toContainText("Playing");
  await player(page).getByRole("button", { name: "Pause" }).click();
  await expect(player(page)).toContainText("Paused");
  await player(page).getByRole("slider", { name: "Position" }).fill("15");
  await expect(player(page).locator(".seek-time")).toHaveText(/^0:1[456] \/ 0:30$/);
  await player(page).getByRole("combobox", { name: "Sound" }).selectOption("German");
  await expect
    .poll(async () => ((await tv(host, "player")) as { tracks: { number: number; chosen: boolean }[] }).tracks)
    .toContainEqual(expect.objectContaining({ kind: "audio", number: 2, chosen: true }));
  await player(page).getByRole("button", { name: "Picture" }).click();
  await expect.poll(() => tv(host, "screen")).toMatchObject({ picture: "media" });
  // The test picture is not black.
  const brightest = () =>
    page.locator(".screen canvas").evaluate((element) => {
      // Reading often from the page's own canvas is slow, and the browser says so.
      const small = new OffscreenCanvas(16, 9).getContext("2d")!;
      small.drawImage(element as HTMLCanvasElement, 0, 0, 16, 9);
      const { data } = small.getImageData(0, 0, 16, 9);
      return data.reduce((brightest, value, at) => (at % 4 < 3 ? Math.max(brightest, value) : brightest), 0);
    });
  await expect.poll(brightest).toBeGreaterThan(100);

  // Photos, by the keys of the remote control.
  await player(page).getByRole("button", { name: "Stop" }).click();
  await expect(player(page)).toHaveCount(0);
  await tv(host, "photo", "show", join(folder, "blue.jpg"));
  await expect(photoBar(page)).toContainText("blue.jpg");
  await tv(host, "key", "NEXT");
  await expect(photoBar(page)).toContainText("green.jpg");
  await tv(host, "key", "EXIT");
  await expect(photoBar(page)).toHaveCount(0);

  // The stick is pulled while the film plays.
  await tv(host, "player", "play", join(folder, "harbour.mkv"));
  await expect(player(page)).toContainText("Playing");
  await tv(host, "stick", "remove", "all");
  await expect(player(page)).toContainText("Failed");
  await expect(player(page).locator(".bad").last()).not.toBeEmpty();
});
