import type { Page } from "@playwright/test";
import { connection, expect, languageMenu, logRows, slider, test, tooWide } from "./fixtures";
import { volumeNotifyUri, volumeUri } from "./host";

/** The rows of calls, without that of the time in which the page was not connected. */
const calls = (page: Page) => logRows(page, "Calls").filter({ hasText: "a_vextvapi_" });

test("the page comes with a policy that forbids other origins", async ({ host }) => {
  const reply = await fetch(host.origin);
  const text = await reply.text();
  expect(reply.headers.get("content-security-policy")).toContain("default-src 'self'");
  expect(text).not.toMatch(/<script(?![^>]*\bsrc=)/);
  expect(text).not.toMatch(/(src|href)="(https?:)?\/\//);
});

test.describe("after the host was killed", () => {
  test.use({ allowedErrors: [/WebSocket connection to .* failed/] });

  test("and started again, the page reconnects and renews its subscriptions", async ({ host, open }) => {
    await host.write(volumeUri, 26);
    const page = await open();
    await expect(slider(page)).toHaveValue("26");
    await page.getByRole("button", { name: "Calls" }).click();
    await page.getByRole("switch").check();

    await host.kill();
    await expect(connection(page)).toContainText("Disconnected");
    await expect(slider(page)).toBeDisabled();

    await host.start();
    await host.write(volumeUri, 68);
    await expect(connection(page)).toContainText("Connected");
    await expect(slider(page)).toHaveValue("68");

    // Subscriptions and trace are active again.
    await expect(async () => {
      await host.write(volumeUri, 71);
      await host.write(volumeUri, 70);
      await expect(calls(page).first()).toBeVisible({ timeout: 500 });
    }).toPass();
    await expect(slider(page)).toHaveValue("70");
    await page.getByRole("button", { name: "Notifications" }).first().click();
    await expect(logRows(page, "Notifications").first()).toContainText("volValue 70");
  });
});

test.describe("when a host was killed before it answered", () => {
  test.use({ allowedErrors: [/WebSocket connection to .* failed/] });

  test("the page requests the trace again after it has reconnected", async ({ host, open }) => {
    const page = await open();
    await page.getByRole("button", { name: "Calls" }).click();
    host.pause();
    await page.getByRole("switch").check();
    await host.kill();
    await expect(connection(page)).toContainText("Disconnected");

    await host.start();
    await expect(connection(page)).toContainText("Connected");
    await expect(page.getByRole("switch")).toBeChecked();
    // The page requests the trace a moment after it has connected.
    let volume = 30;
    await expect(async () => {
      await host.write(volumeUri, volume++);
      await expect(calls(page).first()).toBeVisible({ timeout: 500 });
    }).toPass();
  });
});

for (const width of [360, 390]) {
  test.describe(`at a width of ${width}`, () => {
    test.use({ viewport: { width, height: 740 } });

    test("nothing scrolls sideways and everything can be reached", async ({ host, open }) => {
      const page = await open();
      const tabs = page.getByRole("navigation", { name: "Views" });

      const fits = async (what: string) => {
        expect(await tooWide(page), what).toEqual([]);
      };

      // Each view has a word and an icon of its own.
      const words = await tabs.locator(".tab-text").allInnerTexts();
      expect(words).toContain("Record and faults");
      expect(new Set(words).size).toBe(words.length);
      const icons = await tabs.locator("svg").evaluateAll((each) => each.map((icon) => icon.innerHTML));
      expect(new Set(icons).size).toBe(icons.length);
      for (const button of await tabs.getByRole("button").all()) {
        const box = (await button.locator(".tab-text").boundingBox())!;
        expect(box.width, await button.innerText()).toBeGreaterThan(15);
        await button.click();
        await expect(button).toBeInViewport({ ratio: 1 });
      }
      await tabs.getByRole("button", { name: "URIs" }).click();

      await fits("list");
      await page.getByRole("searchbox").fill("active_window_info cast");
      await fits("empty search");
      await page.getByRole("searchbox").fill("volume");
      await fits("search");
      await page.getByLabel("/tv/cast/volume/volume, VALUE, get, set", { exact: true }).click();
      await expect(page.getByRole("heading", { level: 1 })).toBeVisible();
      await page.getByRole("button", { name: "Get", exact: true }).last().click();
      await expect(page.getByRole("region", { name: "Response" })).toContainText("ret 0");
      await fits("get");
      await page.getByRole("group", { name: "Kind of request" }).getByRole("button", { name: "Set" }).click();
      await page.getByRole("button", { name: "JavaScript" }).click();
      await fits("set");
      await slider(page).fill("55");
      await tabs.getByRole("button", { name: "Live" }).click();
      await expect(logRows(page, "Notifications").first()).toContainText("volValue 55");
      await page.getByText("Subscriptions").click();
      await fits("live");
      await page.getByRole("button", { name: "Calls" }).click();
      await page.getByRole("switch").check();
      // The page may request the trace a moment after the switch has moved.
      let volume = 56;
      await expect(async () => {
        await host.write(volumeUri, volume++);
        await expect(logRows(page, "Calls").first()).toBeVisible({ timeout: 500 });
      }).toPass();
      await fits("platform calls");
      await page.goto(`${host.origin}/#${volumeNotifyUri}`);
      await expect(page.getByRole("heading", { level: 1 })).toBeVisible();
      await fits("notification");

      await tabs.getByRole("button", { name: "Remote control" }).click();
      await expect(page.getByRole("button", { name: "SUBTITLE" })).toBeVisible();
      await fits("remote control");
      await tabs.getByRole("button", { name: "Configuration" }).click();
      const network = page.locator('[data-key="g_misc__tv_network_name"]');
      await network.getByRole("textbox").fill("x".repeat(65));
      await network.getByRole("textbox").press("Enter");
      await expect(network.getByRole("alert")).toBeVisible();
      await fits("configuration");
      for (const [language, tag] of Object.entries({ deu: "de", fra: "fr", spa: "es", tur: "tr" })) {
        await languageMenu(page).selectOption(language);
        await expect(page.locator("html")).toHaveAttribute("lang", tag);
        await fits(language);
      }
    });
  });
}

for (const [place, least] of [
  [volumeUri, 10],
  ["configuration", 100],
  ["channels", 12],
  ["guide", 12],
  ["recordings", 12],
  ["scan", 16],
  ["media", 12],
  ["home-network", 12],
  ["remote", 60],
  ["capture", 30],
] as const) {
  test(`every control of ${place} has a name`, async ({ open }) => {
    const page = await open(`/#${place}`);
    // A line such as `- button "Clear": ...`. The name in quotes is missing if the control has none.
    const control = /^ *- (?:button|textbox|searchbox|spinbutton|switch|slider|checkbox|combobox|link)\b.*/gm;
    const controls = async () => (await page.locator("body").ariaSnapshot()).match(control) ?? [];
    await expect.poll(async () => (await controls()).length).toBeGreaterThan(least);
    expect((await controls()).filter((line) => !/^ *- \w+ (?:"|\/)/.test(line))).toEqual([]);
  });
}
