import type { Locator, Page } from "@playwright/test";
import { connectAntenna, importChannels, importGuide, tv } from "./broadcast";
import { expect, languageMenu, test, tooWide } from "./fixtures";
import type { Host } from "./host";
import { startMediaServer } from "./media-server";

/** The set's menus on the page's screen, operated by keys. */

const screen = (page: Page): Locator => page.getByRole("main").getByRole("group", { name: "Picture" });
const menu = (page: Page): Locator => page.locator(".menu");
const chosen = (page: Page): Locator => menu(page).locator('[aria-selected="true"]');
const message = (page: Page): Locator => page.locator(".screen-note");

async function press(page: Page, ...keys: string[]) {
  for (const key of keys) await page.keyboard.press(key);
}

/** The page with the focus on the screen. */
async function watch(open: () => Promise<Page>): Promise<Page> {
  const page = await open();
  await screen(page).focus();
  await expect(screen(page)).toBeFocused();
  return page;
}

/** Channels and a guide around the present half hour. Returns when that began. */
async function prepare(host: Host): Promise<number> {
  const names = ["Harbour", "Meadow", "Summit", "River", "Forest", "Desert", "Island", "Valley", "Ocean"];
  await importChannels(host, names.map((name, index) => ({ name, number: index + 1 })));
  const begin = Math.floor(Date.now() / 1_800_000) * 1800;
  const parts = [
    ["News", 0, 30],
    ["Market report", 30, 60],
    ["A long film about the sea", 60, 150],
  ] as const;
  await importGuide(
    host,
    names.flatMap((channel) =>
      parts.map(([title, from, to]) => ({
        channel,
        title: `${title} of ${channel}`,
        start: begin + from * 60,
        stop: begin + to * 60,
        text: `What ${channel} tells about it.`,
      })),
    ),
  );
  return begin;
}

test("with an antenna, the guide is opened, a channel is watched, and programmes are recorded by keys", async ({
  host,
  open,
}) => {
  test.slow();
  await connectAntenna(host);
  await tv(host, "scan", "all");
  await expect.poll(async () => (await tv(host, "scan"))["state"], { timeout: 60_000 }).toBe("done");
  await expect.poll(() => tv(host, "tuner"), { timeout: 30_000 }).toMatchObject({ result: "picture" });
  const page = await watch(() => open("/#screen"));
  await press(page, "g");
  const grid = menu(page).getByRole("grid", { name: "Programme guide" });
  await expect(grid).toBeVisible();
  // The set receives the events of the multiplex that it shows.
  await expect(grid.getByRole("gridcell").first()).toBeVisible({ timeout: 30_000 });

  await press(page, "ArrowDown");
  const row = grid.locator('.menu-channel[data-chosen="true"]');
  await expect(grid.getByRole("row").nth(2)).toHaveAttribute("data-chosen", "true");
  const number = await row.locator(".menu-number").innerText();
  await press(page, "Enter");
  await expect(menu(page)).toHaveCount(0);
  expect(await tv(host, "state")).toMatchObject({ channel: Number(number) });
  await expect.poll(() => tv(host, "tuner")).toMatchObject({ result: "picture" });

  await press(page, "Shift+R");
  await expect(message(page)).toContainText("Is being recorded: ");
  expect(await tv(host, "recordings")).toMatchObject({ total: 1, recordings: [{ status: "recording" }] });

  await press(page, "g", "ArrowRight");
  await expect(chosen(page)).toBeVisible();
  const title = await menu(page).locator(".menu-chosen b").innerText();
  await press(page, "Shift+R");
  await expect(message(page)).toHaveText(`Will be recorded: ${title}`);
  await expect(chosen(page).getByRole("img", { name: "Will be recorded" })).toBeVisible();
  const { timers } = (await tv(host, "timers")) as { timers: { title: string }[] };
  expect(timers.map((timer) => timer.title)).toContain(title);

  await press(page, "Home", "ArrowDown", "ArrowDown", "ArrowDown", "ArrowDown", "Enter");
  const recordings = menu(page).getByRole("listbox", { name: "Recordings" });
  await expect(recordings.getByRole("option", { selected: true }).getByRole("img", { name: "Is being recorded" })).toBeVisible();
  await expect(menu(page).locator('[data-key="RED"]')).toContainText("Stop");
  await press(page, "Shift+R");
  await expect(menu(page).locator('[data-key="RED"]')).toContainText("Delete");
  expect(await tv(host, "recordings")).toMatchObject({ recordings: [{ status: "partial" }] });
  await press(page, "Escape");
  await expect(menu(page)).toHaveCount(0);
});

test("the guide shows hours and events, and its details", async ({ host, open }) => {
  await prepare(host);
  const page = await watch(() => open("/#screen"));
  await press(page, "g");
  await expect(chosen(page)).toHaveText("News of Harbour");
  await expect(menu(page).getByRole("columnheader")).toHaveCount(5);
  await expect(menu(page).getByRole("rowheader")).toHaveCount(7);
  await press(page, "ArrowRight", "ArrowDown");
  await expect(chosen(page)).toHaveText("Market report of Meadow");
  await press(page, "Shift+G");
  await expect(message(page)).toHaveText("Reminder set: Market report of Meadow");
  await press(page, "Shift+B");
  await expect(menu(page).getByRole("heading")).toHaveText("Details");
  await expect(menu(page)).toContainText("What Meadow tells about it.");
  await press(page, "Escape", "ArrowUp", "ArrowUp");
  await expect(chosen(page)).toHaveText("Market report of Ocean");
  await menu(page).locator('[data-key="ENTER"]').click();
  await expect(menu(page)).toHaveCount(0);
  expect(await tv(host, "state")).toMatchObject({ channel: 9 });
});

test("a menu that another client opens appears, in the menu's language", async ({ host, open }) => {
  await prepare(host);
  const page = await open("/#screen");
  await tv(host, "menu", "channels");
  await expect(menu(page).getByRole("heading")).toHaveText("Channel list");
  await languageMenu(page).selectOption("deu");
  await expect(menu(page).getByRole("heading")).toHaveText("Senderliste");
  await expect(menu(page).locator('[data-key="ENTER"]')).toContainText("Ansehen");
  await tv(host, "key", "SLEEP");
  await expect(message(page)).toHaveText("Einschlaftimer: 15 min");
  await tv(host, "key", "P.EFFECT");
  await expect(message(page)).toHaveText("Bildmodus: Lebhaft");
  await tv(host, "menu", "close");
  await expect(menu(page)).toHaveCount(0);
});

test("the home network is browsed by keys, and says that it is loading", async ({ open }) => {
  const server = await startMediaServer("Attic 1", "Walks");
  try {
    const page = await watch(() => open("/#screen"));
    await press(page, "Home", "ArrowUp", "Enter");
    await expect(menu(page).getByRole("heading")).toHaveText("Home network");
    await expect(chosen(page)).toHaveText("Attic 1");
    await press(page, "Enter");
    await expect(menu(page)).toContainText("Loading…");
    server.release();
    await expect(chosen(page)).toContainText("Walks");
    await press(page, "ArrowLeft");
    await expect(chosen(page)).toHaveText("Attic 1");
  } finally {
    server.stop();
  }
});

test("the screen names the chosen item as its active descendant", async ({ host, open }) => {
  await prepare(host);
  const page = await watch(() => open("/#screen"));
  const active = () =>
    screen(page).evaluate((element) => document.getElementById(element.getAttribute("aria-activedescendant") ?? "")?.textContent);
  for (const [key, text] of [
    ["Enter", "1HarbourNews of Harbour"],
    ["g", "News of Harbour"],
    ["s", "HDMI 1"],
  ] as const) {
    await press(page, key);
    await expect.poll(active).toContain(text);
    await expect(screen(page)).toBeFocused();
  }
  const options = menu(page).getByRole("option");
  await expect(options).toHaveCount(7);
  await expect(options.first()).toHaveAttribute("aria-setsize", "8");
});

test("the digits of a channel number and keys without effect are shown", async ({ host, open }) => {
  await importChannels(host, [{ name: "Alpha", number: 1 }]);
  const page = await watch(() => open("/#screen"));
  await press(page, "1", "2");
  await expect(page.locator(".screen-typed")).toHaveText("12-");
  await expect(page.locator(".screen-typed")).toHaveCount(0);
  await expect(message(page)).toHaveText("No channel with this number: 12");
  await press(page, "Shift+Y");
  await expect(message(page)).toHaveText("Not available: YELLOW");
  await expect(message(page)).toHaveCount(0);
});

for (const width of [360, 900]) {
  test.describe(`at a width of ${width}`, () => {
    test.use({ viewport: { width, height: 740 } });

    test("the menus fit", async ({ host, open }) => {
      await prepare(host);
      const page = await open("/#screen");
      for (const name of ["main", "guide", "channels", "favourites", "sources", "recordings", "timers"]) {
        await tv(host, "menu", name);
        await expect(menu(page)).toHaveAttribute("data-menu", name);
        expect(await tooWide(page), name).toEqual([]);
        // Nothing is cut off at the bottom: the last action is inside of the menu.
        const bottoms = await menu(page).evaluate((element) => [
          element.getBoundingClientRect().bottom,
          element.querySelector("footer")!.getBoundingClientRect().bottom,
        ]);
        expect(bottoms[1], name).toBeLessThanOrEqual(bottoms[0]!);
      }
    });
  });
}

test.describe("on a phone", () => {
  test.use({ viewport: { width: 390, height: 740 } });

  test("the menu is below the picture, and what the picture says stays over the picture", async ({ host, open }) => {
    const page = await open("/#screen");
    await host.dtvctl("tv", "key", "MENU");
    const boxOf = async (selector: string) => (await page.locator(selector).boundingBox())!;
    await expect(page.locator(".menu")).toBeVisible();
    await expect(page.locator(".screen-message")).not.toBeEmpty();
    const message = await boxOf(".screen-message");
    const menu = await boxOf(".menu");
    expect(message.y + message.height).toBeLessThanOrEqual(menu.y);
    await page.screenshot({ path: test.info().outputPath("menu.png") });
  });
});
