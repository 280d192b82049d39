import type { Locator, Page } from "@playwright/test";
import { changeList, expect, logRows, test } from "./fixtures";
import { volumeNotifyUri } from "./host";

/** Lists of 10,000 rows: few of them are rendered, and every one can be reached. */

const many = 10_000;
const fewRows = 200;
// The browser scrolls by whole pixels, so that a fraction of a row may be cut off.
const whole = { ratio: 0.95 };

const links = (page: Page): Locator => page.getByRole("navigation", { name: "URIs by group" }).getByRole("link");

/** Adds rows to the list of URIs that the host sends. */
const addUris = (page: Page): Promise<void> =>
  changeList(page, ({ uris }) => {
    for (let index = 1; index <= many; index++) {
      const added = { uri: `/tv/zz_many/row_${index}`, id: 0x10000 + index, group: "many", record: index };
      uris.push({ ...uris[0], ...added, get: true, set: false, notify: false } as (typeof uris)[0]);
    }
  });

test("a list of 10,000 more URIs renders few rows, scrolls to its end and works by keyboard", async ({ open }) => {
  const page = await open("/", { prepare: addUris });
  await expect(page.getByText(/^10\d{3} URIs$/)).toBeVisible();
  const search = page.getByRole("searchbox");
  await search.fill("zz_many");
  await expect(page.getByText(/^10000 \/ 10\d{3} URIs$/)).toBeVisible();
  await expect(links(page).first()).toHaveAttribute("href", "#/tv/zz_many/row_1");
  await expect(links(page).first()).toBeInViewport();
  const rendered = () => links(page).count();
  expect(await rendered()).toBeLessThan(fewRows);

  const scroller = page.locator(".list .row-list");
  await scroller.evaluate((element) => element.scrollTo(0, element.scrollHeight));
  await expect(links(page).last()).toHaveAttribute("href", `#/tv/zz_many/row_${many}`);
  await expect(links(page).last()).toBeInViewport(whole);
  expect(await rendered()).toBeLessThan(fewRows);

  // From the search to the first URI, and from there to the ends of the list.
  await search.focus();
  await page.keyboard.press("ArrowDown");
  await expect(links(page).first()).toBeFocused();
  await expect(links(page).first()).toHaveAttribute("href", "#/tv/zz_many/row_1");
  await page.keyboard.press("End");
  const focused = page.locator(":focus");
  await expect(focused).toHaveAttribute("href", `#/tv/zz_many/row_${many}`);
  await expect(focused).toBeInViewport(whole);
  for (let press = 0; press < 30; press++) await page.keyboard.press("ArrowUp");
  await expect(focused).toHaveAttribute("href", `#/tv/zz_many/row_${many - 30}`);
  await expect(focused).toBeInViewport(whole);

  // A focused row that is scrolled away keeps the focus.
  await scroller.evaluate((element) => element.scrollTo(0, 0));
  await expect(page.locator('a[href="#/tv/zz_many/row_1"]')).toBeInViewport();
  await page.keyboard.press("ArrowDown");
  await expect(focused).toHaveAttribute("href", `#/tv/zz_many/row_${many - 29}`);
  await expect(focused).toBeInViewport(whole);
  expect(await rendered()).toBeLessThan(fewRows);

  await page.keyboard.press("Enter");
  await expect(page.getByRole("heading", { level: 1 })).toHaveText(`/tv/zz_many/row_${many - 29}`);
  await expect(page.locator('a.uri[aria-current="true"]')).toBeInViewport(whole);

  // The only group's head is above the first URI, and the search above that.
  await links(page).first().focus();
  await page.keyboard.press("Home");
  await expect(focused).toHaveAttribute("aria-expanded", "true");
  await page.keyboard.press("Space");
  await expect(focused).toHaveAttribute("aria-expanded", "false");
  await expect(links(page)).toHaveCount(0);
  await page.keyboard.press("ArrowUp");
  await expect(search).toBeFocused();
});

test("a log of 10,000 notifications renders few rows, and a row that is being read stays in place", async ({ open }) => {
  let notify: (first: number, last: number) => void = () => {};
  const page = await open("/", {
    prepare: (page) =>
      page.routeWebSocket("**/jsonrpc", (socket) => {
        socket.connectToServer();
        notify = (first, last) => {
          const messages = Array.from({ length: last - first + 1 }, (_, index) => {
            const notification = { URI: volumeNotifyUri, REQUEST: "NOTIFY", ITEMS: [{ made: first + index }] };
            return { jsonrpc: "2.0", method: "notify", params: { uri: volumeNotifyUri, notification } };
          });
          socket.send(JSON.stringify(messages));
        };
      }),
  });
  const rows = logRows(page, "Notifications");
  const live = page.getByRole("region", { name: "Live" });
  const row = (number: number): Locator => rows.filter({ has: page.getByText(`#${number}`, { exact: true }) });
  notify(1, many);
  await expect(live).toContainText(`${many} received`);
  await expect(rows.first()).toContainText(`made ${many}`);
  expect(await rows.count()).toBeLessThan(fewRows);

  await rows.first().locator("summary").focus();
  await page.keyboard.press("End");
  await expect(row(1).locator("summary")).toBeFocused();
  await expect(row(1)).toBeInViewport(whole);
  await expect(row(1)).toContainText("made 1");
  await page.keyboard.press("ArrowUp");
  await expect(row(2).locator("summary")).toBeFocused();
  await page.keyboard.press("Home");
  await expect(row(many).locator("summary")).toBeFocused();
  await expect(row(many)).toBeInViewport(whole);
  expect(await rows.count()).toBeLessThan(fewRows);

  // In the middle of the log, 200 newer rows move nothing; the newest 10,000 stay.
  await live.locator(".row-list").evaluate((element) => element.scrollTo(0, element.scrollHeight / 2));
  const middle = rows.nth(20);
  const text = await middle.locator(".when span").last().innerText();
  const read = row(Number(text.slice(1)));
  await read.locator("summary").click();
  await expect(read.locator("pre")).toBeVisible();
  const before = await read.boundingBox();
  notify(many + 1, many + 200);
  await expect(live).toContainText(`${many + 200} received`);
  expect(await read.boundingBox()).toEqual(before);
  await expect(read.locator("pre")).toBeVisible();

  // Scrolled away and back, it still shows its raw text.
  const scroller = live.locator(".row-list");
  const place = await scroller.evaluate((element) => element.scrollTop);
  await scroller.evaluate((element) => element.scrollTo(0, element.scrollHeight));
  await expect(row(201)).toBeInViewport(whole);
  await scroller.evaluate((element, top) => element.scrollTo(0, top), place);
  await expect(read.locator("pre")).toBeVisible();
  await page.keyboard.press("Home");
  await live.getByRole("button", { name: "Clear" }).click();
  await expect(rows).toHaveCount(0);
});

test("a log of large notifications keeps the newest, up to 16 million characters", async ({ open }) => {
  test.slow();
  const text = "x".repeat(500_000);
  const sent = 36;
  let send: (number: number) => void = () => {};
  const page = await open("/", {
    prepare: (page) =>
      page.routeWebSocket("**/jsonrpc", (socket) => {
        socket.connectToServer();
        send = (number) => {
          const notification = { URI: volumeNotifyUri, REQUEST: "NOTIFY", ITEMS: [{ number, text }] };
          const params = { uri: volumeNotifyUri, notification };
          socket.send(JSON.stringify({ jsonrpc: "2.0", method: "notify", params }));
        };
      }),
  });
  for (let number = 1; number <= sent; ++number) send(number);
  const rows = logRows(page, "Notifications");
  await expect(rows.first()).toContainText(`#${sent}`, { timeout: 60_000 });
  const kept = Number(await rows.first().getAttribute("aria-setsize"));
  // Each has a few characters beside its text.
  expect(kept * text.length).toBeLessThan(16_000_000);
  expect((kept + 2) * text.length).toBeGreaterThan(16_000_000);

  // A line shows the beginning of a long text; the whole notification is in the raw text.
  expect((await rows.first().innerText()).length).toBeLessThan(1000);
  await rows.first().locator("summary").click();
  await expect.poll(async () => (await rows.first().locator("pre").textContent())?.length).toBeGreaterThan(text.length);
});
