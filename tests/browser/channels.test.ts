import type { Locator, Page } from "@playwright/test";
import { importChannels, tv } from "./broadcast";
import { expect, question, test } from "./fixtures";

const panel = (page: Page): Locator => page.getByRole("main", { name: "Channels" });
const rows = (page: Page): Locator => panel(page).locator(".channel");
const row = (page: Page, word: string): Locator => panel(page).locator(`.channel[data-word="${word}"]`);
const edit = (page: Page, name: string): Locator =>
  panel(page).getByRole("button", { name: `Edit: ${name}`, exact: true });
const star = (page: Page, name: string): Locator =>
  panel(page).getByRole("button", { name: `Favourites: ${name}`, exact: true });

const two = [
  { name: "Alpha", number: 1 },
  { name: "Beta Radio", number: 12 },
];
// Rows outside the visible part are not rendered.
const fewRows = 100;

test("the channel list is shown, searched by name and number, and a click changes the channel", async ({ host, open }) => {
  await importChannels(host, two);
  const page = await open();
  await page.getByRole("navigation", { name: "Views" }).getByRole("button", { name: "Channels" }).click();
  await expect(page).toHaveURL(/#channels$/);
  await expect(rows(page)).toHaveCount(2);
  await expect(rows(page).nth(0)).toContainText(/1\s*Alpha\s*Air/);
  await expect(rows(page).nth(1)).toContainText(/12\s*Beta Radio\s*Air/);

  const search = panel(page).getByRole("searchbox");
  await search.fill("radio");
  await expect(rows(page)).toHaveCount(1);
  await expect(panel(page).getByRole("status")).toHaveText("1 / 2 Channels");
  await search.fill("12");
  await expect(rows(page)).toHaveCount(1);
  await search.fill("nothing like this");
  await expect(panel(page)).toContainText("Nothing found");
  await search.press("Escape");

  await panel(page).getByRole("button", { name: /^12, Beta Radio/ }).click();
  await expect(row(page, "air:12")).toHaveAttribute("data-current", "true");
  expect(await tv(host, "tuner")).toMatchObject({ channel: 12, name: "Beta Radio" });
  // A change of the channel elsewhere is followed.
  await tv(host, "tune", "1");
  await expect(row(page, "air:1")).toHaveAttribute("data-current", "true");
  await expect(row(page, "air:12")).toHaveAttribute("data-current", "false");
});

test("a channel that is renamed on one page has its new name on another", async ({ host, open }) => {
  await importChannels(host, two);
  const page = await open("/#channels");
  const other = await open("/#channels");
  await expect(rows(other)).toHaveCount(2);
  await edit(page, "Alpha").click();
  await page.getByRole("textbox", { name: "Name" }).fill("Ålpha & söhne");
  await page.getByRole("textbox", { name: "Name" }).press("Enter");
  await expect(row(other, "air:1")).toContainText("Ålpha & söhne");
  await expect(row(page, "air:1")).toContainText("Ålpha & söhne");
  expect(await tv(host, "channel", "1")).toMatchObject({ name: "Ålpha & söhne" });
});

test("a channel gets another number, is blocked, skipped and deleted", async ({ host, open }) => {
  await importChannels(host, two);
  const page = await open("/#channels");
  await edit(page, "Alpha").click();
  const number = page.getByRole("textbox", { name: "Number" });
  const save = page.getByRole("button", { name: "Save: Number" });

  // A refused number stays in its field, with the reason below it.
  await number.fill("12");
  await save.click();
  await expect(panel(page).getByRole("alert")).toContainText('number 12 belongs to "Beta Radio"');
  await expect(number).toHaveValue("12");
  expect(await tv(host, "channel", "1")).toMatchObject({ name: "Alpha" });

  await number.fill("30");
  await save.click();
  await expect(row(page, "air:30")).toContainText("Alpha");
  await expect(row(page, "air:1")).toHaveCount(0);
  expect(await tv(host, "channel", "30")).toMatchObject({ name: "Alpha" });

  // The editor is still open.
  await page.getByRole("checkbox", { name: /^Blocked/ }).check();
  await expect(row(page, "air:30")).toContainText("Blocked");
  await page.getByRole("checkbox", { name: /^Skipped/ }).check();
  await expect(row(page, "air:30")).toContainText("Skipped");
  expect(await tv(host, "channel", "30")).toMatchObject({ flags: ["blocked", "skipped"] });
  await page.getByRole("checkbox", { name: /^Blocked/ }).uncheck();
  await expect.poll(() => tv(host, "channel", "30")).toMatchObject({ flags: ["skipped"] });

  // The first press only asks.
  await page.getByRole("button", { name: "Delete", exact: true }).click();
  await expect(question(page)).toHaveAccessibleName("Delete “Alpha”?");
  expect(await tv(host, "channels")).toMatchObject({ count: 2 });
  await question(page).getByRole("button", { name: "Delete" }).click();
  await expect(rows(page)).toHaveCount(1);
  expect(await tv(host, "channels")).toMatchObject({ count: 1 });
});

test("the star makes a channel a favourite, and the filter shows only favourites", async ({ host, open }) => {
  await importChannels(host, two);
  const page = await open("/#channels");
  await expect(star(page, "Beta Radio")).toHaveAttribute("aria-pressed", "false");
  await star(page, "Beta Radio").click();
  await expect(star(page, "Beta Radio")).toHaveAttribute("aria-pressed", "true");
  expect(await tv(host, "favourites")).toMatchObject({ count: 1, favourites: [{ number: 12 }] });
  await page.getByRole("checkbox", { name: "Favourites" }).check();
  await expect(rows(page)).toHaveCount(1);
  await star(page, "Beta Radio").click();
  await expect(panel(page)).toContainText("Nothing found");
  expect(await tv(host, "favourites")).toMatchObject({ count: 0 });
});

test("a list of 2,000 channels renders few rows, scrolls to its end and works by keyboard", async ({ host, open }) => {
  const many = 2000;
  await importChannels(
    host,
    Array.from({ length: many }, (_, index) => ({ name: `Station ${index + 1}`, number: index + 1 })),
  );
  const page = await open("/#channels");
  await expect(panel(page).getByRole("status")).toHaveText(`${many} Channels`);
  expect(await rows(page).count()).toBeLessThan(fewRows);
  await panel(page)
    .locator(".row-list")
    .evaluate((element) => element.scrollTo(0, element.scrollHeight));
  await expect(rows(page).last()).toContainText(`Station ${many}`);
  await expect(row(page, `air:${many}`)).toBeInViewport({ ratio: 0.9 });
  expect(await rows(page).count()).toBeLessThan(fewRows);

  // Every number is listed once: the pages of the list fit together.
  await panel(page).getByRole("searchbox").fill("station 1999");
  await expect(rows(page)).toHaveCount(1);
  await panel(page).getByRole("searchbox").fill("");
  await panel(page).getByRole("searchbox").press("ArrowDown");
  await expect(page.locator(":focus")).toHaveAccessibleName("1, Station 1, Air");
  await page.keyboard.press("End");
  await expect(page.locator(":focus")).toHaveAccessibleName(`${many}, Station ${many}, Air`);
  await page.keyboard.press("Enter");
  await expect(row(page, `air:${many}`)).toHaveAttribute("data-current", "true");
});

test("an empty list offers a scan, which tells that there is no antenna", async ({ open }) => {
  const page = await open("/#channels");
  await expect(panel(page)).toContainText("No channels yet: scan");
  await panel(page).getByRole("button", { name: "Scan" }).click();
  await expect(page).toHaveURL(/#scan$/);
  await expect(page.getByRole("alert")).toContainText("the antenna is not connected");
});

for (const [view, name] of [
  ["channels", "Channels"],
  ["guide", "Programme guide"],
  ["scan", "Channel search"],
  ["recordings", "Recordings"],
] as const) {
  test(`without the token the page's view "${view}" tells how to get it`, async ({ host, open }) => {
    await importChannels(host, two);
    const page = await open(`/#${view}`, { token: null });
    const main = page.getByRole("main", { name });
    await expect(main.locator(".access-notice")).toHaveText(
      "This view needs the token: open the address that dtv-host printed (it ends with #token=...)",
    );
    await expect(main.getByRole("button")).toHaveCount(0);
  });
}
