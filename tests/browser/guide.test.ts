import type { Locator, Page } from "@playwright/test";
import { importChannels, importGuide, tv, type Programme } from "./broadcast";
import { expect, test } from "./fixtures";
import type { Host } from "./host";

const panel = (page: Page): Locator => page.getByRole("main", { name: "Programme guide" });
const rows = (page: Page): Locator => panel(page).locator(".guide-row");
const event = (page: Page, title: string): Locator =>
  panel(page).getByRole("button", { name: new RegExp(`^${title}, `) });
const box = (page: Page): Locator => page.getByRole("complementary", { name: "Details" });

const minute = 60;
const fewRows = 60;

/** The beginning of the present half hour. */
const halfHour = (): number => Math.floor(Date.now() / 1000 / 1800) * 1800;

/** Two channels. The first one's events follow one another; at "Tomorrow" 24 hours have passed. */
async function seed(host: Host): Promise<number> {
  const base = halfHour();
  const at = (channel: string, title: string, from: number, to: number, text?: string): Programme => ({
    channel,
    title,
    start: base + from * minute,
    stop: base + to * minute,
    ...(text === undefined ? {} : { text }),
  });
  await importChannels(host, [
    { name: "Alpha", number: 1 },
    { name: "Beta", number: 12 },
  ]);
  await importGuide(host, [
    at("Alpha", "Earlier show", -150, -30),
    at("Alpha", "Present show", -30, 90, "It runs now."),
    at("Alpha", "Next show", 90, 150),
    at("Alpha", "Later show", 150, 210),
    at("Alpha", "Tomorrow show", 24 * 60, 24 * 60 + 100),
    at("Beta", "Long film", -30, 200),
  ]);
  return base;
}

test("the guide shows the events around the present time", async ({ host, open }) => {
  await seed(host);
  const page = await open("/#guide");
  await expect(rows(page)).toHaveCount(2);
  await expect(event(page, "Present show")).toBeVisible();
  await expect(event(page, "Next show")).toBeVisible();
  await expect(event(page, "Long film")).toBeVisible();
  await expect(event(page, "Earlier show")).toHaveCount(0);

  // The line of the present time is within the present event, and that begins at the grid's left edge.
  const line = (await panel(page).locator(".guide-present i").boundingBox())!;
  const present = (await event(page, "Present show").boundingBox())!;
  expect(line.x).toBeGreaterThanOrEqual(present.x - 3);
  expect(line.x).toBeLessThan(present.x + present.width);
  const next = (await event(page, "Next show").boundingBox())!;
  expect(Math.abs(next.x - (present.x + present.width))).toBeLessThan(5);

  await panel(page).getByRole("button", { name: "Earlier" }).click();
  await expect(event(page, "Earlier show")).toBeVisible();
  await panel(page).getByRole("button", { name: "Now" }).click();
  await expect(event(page, "Earlier show")).toHaveCount(0);
  await panel(page).getByRole("button", { name: "Next day" }).click();
  await expect(event(page, "Tomorrow show")).toBeVisible();
  await expect(event(page, "Present show")).toHaveCount(0);
});

test("events that the set receives while the guide is open appear in it", async ({ host, open }) => {
  await seed(host);
  const page = await open("/#guide");
  await expect(event(page, "Present show")).toBeVisible();
  await tv(host, "guide", "clear");
  await expect(event(page, "Present show")).toHaveCount(0);
  await expect(panel(page)).toContainText("The guide has no events yet.");
});

test("times are shown in the zone of the set", async ({ host, open }) => {
  const base = await seed(host);
  const { zone } = await tv(host, "clock");
  const time = (seconds: number) =>
    new Date(seconds * 1000).toLocaleTimeString("en-GB", { timeZone: String(zone), hour: "2-digit", minute: "2-digit" });
  const page = await open("/#guide");
  await expect(event(page, "Next show")).toHaveAccessibleName(
    `Next show, ${time(base + 90 * minute)} – ${time(base + 150 * minute)}`,
  );
});

test("an event's details are shown; it is recorded, and a reminder is set", async ({ host, open }) => {
  await seed(host);
  const page = await open("/#guide");
  await event(page, "Present show").click();
  await expect(box(page).getByRole("heading")).toHaveText("Present show");
  await expect(box(page)).toContainText("It runs now.");
  await expect(box(page)).toContainText("1 Alpha");
  await expect(box(page).getByRole("button", { name: "Remind" })).toBeDisabled();

  await event(page, "Next show").click();
  await expect(box(page).getByRole("heading")).toHaveText("Next show");
  await box(page).getByRole("button", { name: "Record" }).click();
  await expect(box(page)).toContainText("A timer will record it.");
  await event(page, "Later show").click();
  await box(page).getByRole("button", { name: "Remind" }).click();
  await expect(box(page)).toContainText("A message will remind you.");
  const { timers } = (await tv(host, "timers")) as { timers: { kind: string; title: string }[] };
  expect(timers.map(({ kind, title }) => `${kind} ${title}`)).toEqual(["record Next show", "reminder Later show"]);

  await box(page).getByRole("button", { name: "Close" }).click();
  await expect(box(page)).toHaveCount(0);
});

test("the parts of a series are recorded", async ({ host, open }) => {
  const base = halfHour();
  await importChannels(host, [{ name: "Alpha", number: 1 }]);
  const parts = [60, 90].map((from) => ({
    channel: "Alpha",
    title: `Part ${from}`,
    start: base + from * minute,
    stop: base + (from + 30) * minute,
    series: "EP00000007",
  }));
  const single = { channel: "Alpha", title: "Single show", start: base + 120 * minute, stop: base + 150 * minute, text: "Alone." };
  await importGuide(host, [...parts, single]);
  const page = await open("/#guide");
  await event(page, "Part 60").click();
  await box(page).getByRole("button", { name: "Series" }).click();
  await expect(box(page)).toContainText("Every new part will be recorded.");
  const kinds = async () => ((await tv(host, "timers")) as { timers: { kind: string }[] }).timers.map(({ kind }) => kind);
  await expect.poll(async () => (await kinds()).sort()).toEqual(["record", "record", "series"]);
  // The badge tells of a series that the guide names.
  await expect(box(page).locator(".badge", { hasText: "Series" })).toBeVisible();
  await event(page, "Single show").click();
  await expect(box(page)).toContainText("Alone.");
  await expect(box(page).locator(".badge", { hasText: "Series" })).toHaveCount(0);
});

test("a recording for which no tuner is free is refused with the conflicts", async ({ host, open }) => {
  const names = ["Alpha", "Beta", "Gamma"];
  const base = halfHour();
  await importChannels(
    host,
    names.map((name, index) => ({ name, number: index + 1, stream: index + 1 })),
  );
  const show = (channel: string): Programme => ({
    channel,
    title: `${channel} show`,
    start: base + 90 * minute,
    stop: base + 150 * minute,
  });
  await importGuide(host, names.map(show));
  const page = await open("/#guide");
  for (const name of names.slice(0, 2)) {
    await event(page, `${name} show`).click();
    await expect(box(page).getByRole("heading")).toHaveText(`${name} show`);
    await box(page).getByRole("button", { name: "Record" }).click();
    await expect(box(page)).toContainText("A timer will record it.");
  }
  await event(page, "Gamma show").click();
  await expect(box(page).getByRole("heading")).toHaveText("Gamma show");
  await box(page).getByRole("button", { name: "Record" }).click();
  await expect(box(page).getByRole("alert")).toContainText("Alpha show");
  await expect(box(page).getByRole("alert")).toContainText("Beta show");
});

test("the guide works by keyboard", async ({ host, open }) => {
  await seed(host);
  const page = await open("/#guide");
  const focused = page.locator(":focus");
  await event(page, "Present show").focus();
  await page.keyboard.press("ArrowRight");
  await expect(focused).toHaveAccessibleName(/^Next show/);
  await page.keyboard.press("ArrowRight");
  await expect(focused).toHaveAccessibleName(/^Later show/);
  await page.keyboard.press("ArrowDown");
  await expect(focused).toHaveAccessibleName(/^Long film/);
  // In the other row and back, the time stays; above the first row there is nothing.
  await page.keyboard.press("ArrowUp");
  await page.keyboard.press("ArrowUp");
  await expect(focused).toHaveAccessibleName(/^Later show/);
  await page.keyboard.press("Home");
  await expect(focused).toHaveAccessibleName(/^Present show/);
  // To the left of the shown time, the grid moves.
  await page.keyboard.press("ArrowLeft");
  await expect(focused).toHaveAccessibleName(/^Earlier show/);
  await page.keyboard.press("Home");
  await page.keyboard.press("Enter");
  await expect(box(page).getByRole("heading")).toHaveText("Present show");
  await page.keyboard.press("Escape");
  await expect(box(page)).toHaveCount(0);
});

test("a guide of 500 channels renders few rows and reaches the last one", async ({ host, open }) => {
  const many = 500;
  const base = halfHour();
  const names = Array.from({ length: many }, (_, index) => `Station ${index + 1}`);
  await importChannels(
    host,
    names.map((name, index) => ({ name, number: index + 1 })),
  );
  await importGuide(
    host,
    names.flatMap((channel, index) =>
      Array.from({ length: 8 }, (_, part) => ({
        channel,
        title: `Show ${index + 1} part ${part}`,
        start: base + (part - 1) * 60 * minute,
        stop: base + part * 60 * minute,
      })),
    ),
  );
  const page = await open("/#guide");
  await expect(event(page, "Show 1 part 1")).toBeVisible();
  expect(await rows(page).count()).toBeLessThan(fewRows);
  const scroller = panel(page).locator(".guide-scroller");
  for (const share of [0.2, 0.4, 0.6, 0.8, 1]) {
    await scroller.evaluate((element, to) => element.scrollTo(0, element.scrollHeight * to), share);
  }
  await expect(event(page, `Show ${many} part 1`)).toBeInViewport({ ratio: 0.9 });
  expect(await rows(page).count()).toBeLessThan(fewRows);

  // A focused event that is scrolled away keeps the focus.
  await event(page, `Show ${many} part 1`).focus();
  await scroller.evaluate((element) => element.scrollTo(0, 0));
  await expect(event(page, "Show 1 part 1")).toBeInViewport();
  await page.keyboard.press("ArrowUp");
  await expect(page.locator(":focus")).toHaveAccessibleName(new RegExp(`^Show ${many - 1} part 1, `));
  await expect(page.locator(":focus")).toBeInViewport({ ratio: 0.9 });
});
