import { mkdtemp, rm } from "node:fs/promises";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { test as base, expect } from "@playwright/test";
import puppeteer, { type Browser, type Page } from "puppeteer-core";
import { createHost, volumeUri, type Host } from "./host";

/** The page's main paths in Firefox, which Playwright drives only in a build of its own: WebDriver BiDi drives Debian's. */

const firefox = process.env["DTV_FIREFOX"] ?? "/usr/bin/firefox-esr";

interface Fixtures {
  host: Host;
  /** A page of the host, with its token. */
  fox: Page;
}

const test = base.extend<Fixtures, { firefoxBrowser: Browser }>({
  firefoxBrowser: [
    async ({}, use) => {
      const profile = await mkdtemp(join(tmpdir(), "dtv-firefox-"));
      const browser = await puppeteer.launch({
        browser: "firefox",
        executablePath: firefox,
        userDataDir: profile,
        headless: true,
        // The browser's own services must not use the network.
        extraPrefsFirefox: {
          "network.captive-portal-service.enabled": false,
          "network.connectivity-service.enabled": false,
          "browser.safebrowsing.update.enabled": false,
          "services.settings.server": "http://127.0.0.1:9/",
        },
      });
      await use(browser);
      await browser.close();
      await rm(profile, { recursive: true, force: true });
    },
    { scope: "worker" },
  ],

  host: async ({}, use) => {
    const host = await createHost();
    await use(host);
    await host.dispose();
  },

  fox: async ({ firefoxBrowser, host }, use) => {
    const context = await firefoxBrowser.createBrowserContext();
    const page = await context.newPage();
    await page.setViewport({ width: 1280, height: 800 });
    const errors: string[] = [];
    page.on("pageerror", (error) => {
      // Firefox reports each attempt to reach a host that was killed.
      if (!String(error).includes(" at ws://")) errors.push(String(error));
    });
    await page.goto(`${host.origin}/#token=${host.token ?? ""}`);
    await use(page);
    await context.close();
    expect(errors).toEqual([]);
  },
});

const text = (page: Page, selector: string) => page.$eval(selector, (element) => element.textContent ?? "");
const connected = (page: Page) => page.waitForSelector('.connection[data-state="open"]');
const volume = (page: Page) => page.$eval(".volume input", (input) => input.value);

test.describe("in Firefox", () => {
  test("the page connects, reads and sets a value, and shows notifications", async ({ host, fox }) => {
    await connected(fox);
    await expect.poll(() => volume(fox)).toBe(String(await host.read(volumeUri)));

    await host.write(volumeUri, 41);
    await expect.poll(() => volume(fox)).toBe("41");
    await expect.poll(() => text(fox, ".live")).toContain("volValue 41");

    await fox.goto(`${host.origin}/#/tv/cast/volume/volume`);
    await fox.locator('.request button[type="submit"]').click();
    await expect.poll(() => text(fox, ".response")).toContain("ret 0");

    const slider = await fox.$(".volume input");
    await slider?.focus();
    await fox.keyboard.press("ArrowRight");
    await expect.poll(() => host.read(volumeUri)).toBe(42);
  });

  test("after the host was killed and started again, the page reconnects", async ({ host, fox }) => {
    await connected(fox);
    await host.kill();
    await expect.poll(() => text(fox, ".connection")).toContain("Disconnected");
    await host.start();
    await connected(fox);
    await host.write(volumeUri, 17);
    await expect.poll(() => volume(fox)).toBe("17");
  });
});
