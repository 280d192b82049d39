import type { Locator, Page } from "@playwright/test";
import { expect, test } from "./fixtures";

/** The page's colours: those of the system, or those chosen in this browser. */

const menu = (page: Page): Locator => page.getByRole("combobox", { name: "Colours of this page" });
const isDark = (colour: string): boolean => {
  const [red = 0, green = 0, blue = 0] = (/rgb\((\d+), (\d+), (\d+)\)/.exec(colour) ?? []).slice(1).map(Number);
  return red + green + blue < 3 * 64;
};
const background = (page: Page): Promise<string> =>
  page.evaluate(() => getComputedStyle(document.body).backgroundColor);
const isDarkPage = async (page: Page): Promise<boolean> => isDark(await background(page));
/** The colours that the browser gives its own parts, such as scroll bars and menus. */
const scheme = (page: Page): Promise<string> =>
  page.evaluate(() => getComputedStyle(document.documentElement).colorScheme);

test("the page has the system's colours, follows their change, and keeps a choice of its own", async ({ open }) => {
  const page = await open("/");
  await page.emulateMedia({ colorScheme: "light" });
  await expect(menu(page)).toHaveValue("system");
  expect(await isDarkPage(page)).toBe(false);
  await page.emulateMedia({ colorScheme: "dark" });
  expect(await isDarkPage(page)).toBe(true);

  await menu(page).selectOption("Light");
  expect(await isDarkPage(page)).toBe(false);
  expect(await scheme(page)).toBe("light");
  await page.reload();
  await expect(menu(page)).toHaveValue("light");
  expect(await isDarkPage(page)).toBe(false);

  await page.emulateMedia({ colorScheme: "light" });
  await menu(page).selectOption("Dark");
  expect(await isDarkPage(page)).toBe(true);
  expect(await scheme(page)).toBe("dark");
  const colours = page.locator('meta[name="theme-color"]');
  expect(await colours.evaluateAll((metas) => new Set(metas.map((meta) => (meta as HTMLMetaElement).content)).size)).toBe(1);

  await menu(page).selectOption("As the system");
  expect(await isDarkPage(page)).toBe(false);
  await page.reload();
  await expect(menu(page)).toHaveValue("system");
  expect(await colours.evaluateAll((metas) => new Set(metas.map((meta) => (meta as HTMLMetaElement).content)).size)).toBe(2);
});

test("another tab of the browser follows", async ({ host, open }) => {
  const page = await open("/");
  await page.emulateMedia({ colorScheme: "light" });
  const other = await page.context().newPage();
  await other.emulateMedia({ colorScheme: "light" });
  await other.goto(host.origin);
  await menu(other).selectOption("Dark");
  await expect.poll(() => isDarkPage(page)).toBe(true);
});

test("the chosen colours are there before the page's script runs", async ({ open }) => {
  const page = await open("/");
  await page.emulateMedia({ colorScheme: "light" });
  await menu(page).selectOption("Dark");
  // The page's script does not arrive, so what is painted is what is painted first.
  await page.route("**/assets/*.js", () => undefined);
  await page.reload({ waitUntil: "commit" });
  await page.locator("#app").waitFor({ state: "attached" });
  await expect.poll(() => isDarkPage(page)).toBe(true);
  expect(await page.locator("#app").innerHTML()).toBe("");
  await page.unrouteAll({ behavior: "ignoreErrors" });
});

test("a browser that keeps nothing has the system's colours, and the choice holds until the page is closed", async ({ open }) => {
  const page = await open("/", {
    async prepare(page) {
      await page.addInitScript(() => {
        const refuse = () => {
          throw new DOMException("refused", "SecurityError");
        };
        Storage.prototype.setItem = refuse;
        Storage.prototype.removeItem = refuse;
      });
    },
  });
  await page.emulateMedia({ colorScheme: "light" });
  await expect(menu(page)).toHaveValue("system");
  await menu(page).selectOption("Dark");
  expect(await isDarkPage(page)).toBe(true);
  await page.reload();
  expect(await isDarkPage(page)).toBe(false);
});
