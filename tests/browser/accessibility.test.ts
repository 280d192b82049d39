import type { Page } from "@playwright/test";
import { axeFindings } from "./axe";
import { connectAntenna, importChannels, importGuide, tv } from "./broadcast";
import { expect, test } from "./fixtures";
import { volumeUri, type Host } from "./host";
import { film, mediaFakes, played, stick } from "./media-fakes";

/** Every view with something in it, as axe-core sees it: light, dark and in the colours that the viewer forces. */

const modes = {
  light: { colorScheme: "light", forcedColors: "none" },
  dark: { colorScheme: "dark", forcedColors: "none" },
  forced: { colorScheme: "dark", forcedColors: "active" },
} as const;

const hour = 3600;

async function fill(host: Host) {
  await connectAntenna(host);
  await importChannels(host, [
    { name: "Alpha", number: 1 },
    { name: "Beta Radio", number: 12 },
  ]);
  const now = Math.floor(Date.now() / 1000 / hour) * hour;
  await importGuide(host, [
    { channel: "Alpha", title: "Present show", start: now, stop: now + hour, text: "It runs now.", series: "s1" },
    { channel: "Alpha", title: "Next show", start: now + hour, stop: now + 3 * hour },
    { channel: "Beta Radio", title: "Long film", start: now - hour, stop: now + 2 * hour },
  ]);
  await tv(host, "tune", "1");
  await tv(host, "channel", "air:12", "block");
  await tv(host, "favourite", "air:1", "add");
  const { events } = (await tv(host, "guide", "1", "0")) as { events: { id: number; title: string }[] };
  const next = events.find(({ title }) => title === "Next show")!;
  await tv(host, "record", "event", "air:1", String(next.id));
}

/** By the view's identifier: what is opened in it. A view that is not here is looked at as it opens. */
const inside: Record<string, (page: Page, host: Host) => Promise<void>> = {
  async request(page, host) {
    await page.goto(`${host.origin}/#${volumeUri}`);
    await page.getByRole("button", { name: "Get", exact: true }).last().click();
    await expect(page.getByRole("region", { name: "Response" })).toContainText("ret 0");
    await page.getByRole("group", { name: "Kind of request" }).getByRole("button", { name: "Set" }).click();
    await page.getByRole("textbox", { name: /^VALUE/ }).fill("999999999999");
  },
  async live(page, host) {
    await host.write(volumeUri, 31);
    await page.getByText("Subscriptions").click();
  },
  async configuration(page) {
    await page.getByRole("button", { name: "g_action__reset_all" }).click();
    await expect(page.getByRole("alertdialog")).toBeVisible();
  },
  async channels(page) {
    await page.getByRole("button", { name: "Edit: Alpha", exact: true }).click();
  },
  async guide(page) {
    await page.getByRole("button", { name: /^Present show, / }).click();
    await expect(page.getByRole("complementary", { name: "Details" })).toContainText("It runs now.");
  },
  async media(page) {
    const media = page.getByRole("main", { name: "Media" });
    await media.getByRole("group", { name: "Kind" }).getByRole("button", { name: "Photos" }).click();
    await media.getByRole("button", { name: "Details: photo 00001.jpg" }).click();
  },
  async "home-network"(page) {
    await page.getByRole("button", { name: /^Attic/ }).click();
    await expect(page.getByRole("main").getByText("Slow Train")).toBeVisible();
  },
  async screen(page, host) {
    await tv(host, "key", "MENU");
    await expect(page.locator(".menu")).toBeVisible();
  },
};

for (const [width, height] of [
  [1280, 800],
  [390, 740],
] as const) {
  test.describe(`at ${width} by ${height}`, () => {
    test.use({ viewport: { width, height } });

    test("axe-core finds nothing on any view", async ({ host, open }) => {
      test.slow();
      await fill(host);
      const fakes = mediaFakes();
      fakes.player = played();
      fakes.photo = { state: "shown", path: `${stick}/Photos/photo 00001.jpg`, width: 4000, height: 3000, zoom: 100, index: 1, of: 7 };
      fakes.servers = [
        { id: 1, name: "Attic", address: "192.0.2.7", online: true, wakable: true },
        { id: 2, name: "Cellar", address: "192.0.2.8", online: false, wakable: true },
      ];
      fakes.searching = true;
      fakes.favourites.add(String(film["path"]));
      const page = await open("/", { prepare: fakes.prepare });
      const tabs = page.getByRole("navigation", { name: "Views" }).locator("button");
      const ids = await tabs.evaluateAll((each) => each.map((tab) => (tab as HTMLElement).dataset["tab"]!));
      expect(ids.length).toBeGreaterThan(10);
      const findings: string[] = [];
      for (const id of ids) {
        const tab = page.locator(`[data-tab="${id}"]`);
        // On a wide screen the columns have no tabs.
        if (await tab.isVisible()) await tab.click();
        await inside[id]?.(page, host);
        for (const [mode, media] of Object.entries(modes)) {
          // Without motion, the colours of the mode are there at once.
          await page.emulateMedia({ ...media, reducedMotion: "reduce" });
          const shots = process.env["DTV_SHOTS"];
          if (shots) await page.screenshot({ path: `${shots}/${width}-${id}-${mode}.png` });
          findings.push(...(await axeFindings(page)).map((finding) => `${id}, ${mode}: ${finding}`));
        }
      }
      expect(findings).toEqual([]);
    });
  });
}
