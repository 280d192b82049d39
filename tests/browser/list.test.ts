import type { Page } from "@playwright/test";
import { expect, readList, test } from "./fixtures";

const links = (page: Page) => page.getByRole("navigation", { name: "URIs by group" }).getByRole("link");
const search = (page: Page) => page.getByRole("searchbox", { name: "Search" });

interface Link {
  address: string;
  name: string;
}

/** Opens every group and scrolls through the whole list. Returns the links that became visible, in their order. */
const readWholeList = (page: Page): Promise<Link[]> =>
  page.getByRole("navigation", { name: "URIs by group" }).evaluate(async (nav) => {
    const scroller = nav.querySelector(".row-list")!;
    const seen = new Map<number, Link>();
    const rendered = () => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done)));
    for (;;) {
      const closed = nav.querySelector<HTMLElement>('button[aria-expanded="false"]');
      if (closed) {
        closed.click();
        await rendered();
        continue;
      }
      const visible = scroller.getBoundingClientRect();
      for (const link of nav.querySelectorAll("a")) {
        const { top, bottom } = link.getBoundingClientRect();
        if (bottom <= visible.top || top >= visible.bottom) continue;
        const position = Number(link.closest("li")!.getAttribute("aria-posinset"));
        seen.set(position, { address: link.getAttribute("href")!, name: link.ariaLabel! });
      }
      const before = scroller.scrollTop;
      scroller.scrollTop += scroller.clientHeight / 2;
      if (scroller.scrollTop === before) return [...seen.values()];
      await rendered();
    }
  });

test("every URI of the registry is listed, with type and abilities", async ({ host, open }) => {
  const page = await open();
  const { uris } = await readList(host);
  expect(uris.length).toBeGreaterThan(400);
  await expect(page.getByText(`${uris.length} URIs`, { exact: true })).toBeVisible();
  const seen = await readWholeList(page);
  expect(seen.map(({ address }) => address).sort()).toEqual(uris.map(({ uri }) => `#${uri}`).sort());
  const names = seen.map(({ name }) => name);
  expect(names).toContain("/tv/cast/volume/volume, VALUE, get, set");
  expect(names).toContain("/tv/ws/notify/volume_ctrl, VOL_CTRL_NOTIFY, notify");
});

test("the search accepts several words in any order", async ({ open }) => {
  const page = await open();
  await search(page).fill("MUTE cast");
  await expect(links(page)).toHaveCount(1);
  await expect(links(page)).toHaveAttribute("href", "#/tv/cast/volume/mute");

  await search(page).fill("olume_inc");
  await expect(links(page)).toHaveAttribute("href", "#/tv/cast/volume/volume_increase");

  // What describes a URI is found by the beginnings of words, behind what has the words in its name.
  await search(page).fill("clock");
  await expect(links(page)).toHaveCount(1);
  await expect(links(page)).toHaveAttribute("href", "#/tv/menu/common_setting/utc_time");
  await expect(links(page)).toContainText("The clock of the set");
  await search(page).fill("brightness");
  await expect(links(page)).toHaveAttribute("href", "#/tv/config/value_number");
  // A unit, the name of a value, and a member of a request.
  await search(page).fill("local_time ms");
  await expect(links(page)).toHaveCount(2);
  await search(page).fill("volume muted");
  await expect(links(page).first()).toHaveAttribute("href", "#/tv/cast/volume/mute");
  await search(page).fill("cfgid value_number");
  await expect(links(page)).toHaveAttribute("href", "#/tv/config/value_number");
  // "mute" is in the name of one, in the description of the other.
  await search(page).fill("mute volume");
  await expect(page.getByText("Found in the description")).toBeVisible();
  await expect(links(page).first()).toHaveAttribute("href", "#/tv/cast/volume/mute");
  await expect(links(page).last()).toHaveAttribute("href", "#/tv/ws/notify/volume_ctrl");

  await search(page).fill("volume nosuchword");
  await expect(links(page)).toHaveCount(0);
  await expect(page.getByText("Nothing found")).toBeVisible();
});

test("list and search work by keyboard", async ({ open }) => {
  const page = await open();
  await page.keyboard.press("/");
  await expect(search(page)).toBeFocused();
  await page.keyboard.type("cast volume");
  await expect(links(page)).toHaveCount(4);
  await page.keyboard.press("ArrowDown");
  await expect(links(page).first()).toBeFocused();
  await page.keyboard.press("ArrowDown");
  await expect(links(page).nth(1)).toBeFocused();
  const chosen = await links(page).nth(1).getAttribute("href");
  await page.keyboard.press("Enter");
  await expect(page).toHaveURL(new RegExp(`${chosen}$`));
  await expect(page.getByRole("heading", { level: 1 })).toHaveText(chosen!.slice(1));

  await page.keyboard.press("Escape");
  await expect(search(page)).toHaveValue("");
  await expect(search(page)).toBeFocused();
});

test("a URI that nothing serves is marked as such", async ({ open }) => {
  const page = await open();
  await search(page).fill("factory_setting/flip");
  await expect(links(page)).toHaveAccessibleName("/tv/menu/factory_setting/flip, VALUE, not served");
  await links(page).click();
  await expect(page.getByText("Not served.", { exact: true })).toBeVisible();
  await expect(page.getByRole("form")).toHaveCount(0);
});

test("a URI that is accepted without effect is marked as such", async ({ open }) => {
  const page = await open();
  await search(page).fill("common_setting/blue_mute");
  await expect(links(page)).toHaveAccessibleName("/tv/menu/common_setting/blue_mute, VALUE, without effect");
  await links(page).click();
  await expect(page.getByText("Without effect.", { exact: true })).toBeVisible();
  await expect(page.getByRole("form")).toHaveCount(0);
});

test("the URIs that the page suggests to start with can be read", async ({ open }) => {
  const page = await open();
  const suggested = page.locator(".start-list a");
  const uris = await suggested.allTextContents();
  expect(uris).toHaveLength(6);
  for (const uri of uris) {
    await suggested.filter({ hasText: new RegExp(`^${uri}$`) }).click();
    await expect(page.getByRole("heading", { level: 1 })).toHaveText(uri);
    await page.getByRole("form").getByRole("button", { name: "Get", exact: true }).click();
    const response = page.getByRole("region", { name: "Response" });
    await expect(response).toContainText("ret 0");
    await expect(response.getByRole("list", { name: "Platform calls of this request" }).getByRole("listitem")).not.toHaveCount(0);
    await page.goBack();
  }
});

test("a deep link selects its URI, and the browser's history works", async ({ open }) => {
  const page = await open("/#/tv/cast/volume/mute");
  await expect(page.getByRole("heading", { level: 1 })).toHaveText("/tv/cast/volume/mute");
  const chosen = page.locator('a.uri[aria-current="true"]');
  await expect(chosen).toHaveAttribute("href", "#/tv/cast/volume/mute");

  await page.getByLabel("/tv/cast/volume/volume, VALUE, get, set", { exact: true }).click();
  await expect(page.getByRole("heading", { level: 1 })).toHaveText("/tv/cast/volume/volume");
  await page.goBack();
  await expect(page.getByRole("heading", { level: 1 })).toHaveText("/tv/cast/volume/mute");

  await page.goto(`${new URL(page.url()).origin}/#/tv/no/such/uri`);
  await expect(page.getByText("The registry has no URI /tv/no/such/uri.")).toBeVisible();
  // A URI far down, in a page that is loaded with it.
  const far = await open("/#/tv/cbrowser/dlna/dmr_get_media_info");
  await expect(far.locator('a.uri[aria-current="true"]')).toBeInViewport({ ratio: 0.95 });
});

test("a URI with a mistake leads to the nearest ones", async ({ host, open }) => {
  const page = await open("/#/tv/cast/volume/volum");
  const nearest = page.getByRole("main").getByRole("link");
  await expect(nearest.first()).toHaveText("/tv/cast/volume/volume");
  await nearest.first().click();
  await expect(page.getByRole("heading", { level: 1 })).toHaveText("/tv/cast/volume/volume");

  await search(page).fill("/tv/cast/volume/mutte");
  await expect(links(page).first()).toHaveText("/tv/cast/volume/mute");
  await search(page).press("Enter");
  await expect(page.getByText("The registry has no URI /tv/cast/volume/mutte.")).toBeVisible();
  await expect(nearest.first()).toHaveText("/tv/cast/volume/mute");
  await expect(page).toHaveURL(`${host.origin}/#/tv/cast/volume/mutte`);
});

test.describe("a host that does not serve the list by HTTP", () => {
  test.use({ allowedErrors: [/404/] });

  for (const [kind, answer] of Object.entries({
    "has no such path": { status: 404, body: "Not found" },
    "has a page there": { status: 200, contentType: "text/html", body: "<!doctype html>" },
  })) {
    test(`and ${kind} gives it over the connection`, async ({ host, open }) => {
      const { uris } = await readList(host);
      const prepare = async (page: Page) => void (await page.route("**/list.json", (route) => route.fulfill(answer)));
      const page = await open("/", { prepare });
      await expect(page.getByText(`${uris.length} URIs`, { exact: true })).toBeVisible();
    });
  }
});
