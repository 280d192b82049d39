import { join } from "node:path";
import type { Page } from "@playwright/test";
import { axeFindings } from "./axe";
import { connectAntenna, importChannels, importGuide, tv } from "./broadcast";
import { expect, languageMenu, question, test, tooWide } from "./fixtures";
import { volumeUri, type Host } from "./host";
import { film, mediaFakes, played, stick, type Fakes } from "./media-fakes";

/** Every view with something in it: as axe-core sees it, light, dark and in forced colours; and in every language. */

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

type Step = (page: Page, host: Host) => Promise<void>;

/** A view asks the set when it opens. What comes later than this is not looked at. */
const asItOpens: Step = (page) => page.waitForTimeout(600);

/** Steps that fill a view before axe examines it, by the view's identifier. A view without steps is examined as it opens. */
const inside: Record<string, Step[]> = {
  request: [
    asItOpens,
    async (page, host) => {
      await page.goto(`${host.origin}/#${volumeUri}`);
      await page.getByRole("button", { name: "Get", exact: true }).last().click();
      await expect(page.getByRole("region", { name: "Response" })).toContainText("ret 0");
      await page.getByRole("group", { name: "Kind of request" }).getByRole("button", { name: "Set" }).click();
      await page.getByRole("textbox", { name: /^VALUE/ }).fill("999999999999");
    },
  ],
  live: [
    async (page, host) => {
      await host.write(volumeUri, 31);
      await page.getByText("Subscriptions").click();
    },
  ],
  configuration: [
    async (page) => {
      await expect(page.locator(".config-line").first()).toBeVisible();
    },
    async (page) => {
      await page.getByRole("button", { name: "g_action__reset_all" }).click();
      await expect(question(page)).toBeVisible();
    },
  ],
  channels: [(page) => page.getByRole("button", { name: "Edit: Alpha", exact: true }).click()],
  guide: [
    async (page) => {
      await page.getByRole("button", { name: /^Present show, / }).click();
      await expect(page.getByRole("complementary", { name: "Details" })).toContainText("It runs now.");
    },
  ],
  media: [
    async (page) => {
      const media = page.getByRole("main", { name: "Media" });
      await media.getByRole("group", { name: "Kind" }).getByRole("button", { name: "Photos" }).click();
      await media.getByRole("button", { name: "Details: photo 00001.jpg" }).click();
    },
    (page) => page.getByRole("main", { name: "Media" }).getByRole("button", { name: "Grid" }).click(),
  ],
  "home-network": [
    async (page) => {
      await page.getByRole("button", { name: /^Attic/ }).click();
      await expect(page.getByRole("main").getByText("Slow Train")).toBeVisible();
    },
  ],
  screen: [
    async (page, host) => {
      await tv(host, "key", "MENU");
      await expect(page.locator(".menu")).toBeVisible();
    },
  ],
};

/** Opens each view of the page, and each thing in it; a view that is new is among them. */
async function walk(page: Page, host: Host, opened: Record<string, Step[]>, look: (what: string) => Promise<void>) {
  const tabs = page.locator(".tabs button");
  const ids = await tabs.evaluateAll((each) => each.map((tab) => (tab as HTMLElement).dataset["tab"]!));
  expect(ids.length).toBeGreaterThan(10);
  for (const id of ids) {
    const tab = page.locator(`.tabs [data-tab="${id}"]`);
    // On a wide screen the columns have no tabs.
    if (await tab.isVisible()) await tab.click();
    for (const [index, step] of (opened[id] ?? [asItOpens]).entries()) {
      await step(page, host);
      await look(`${id}${index === 0 ? "" : ` ${index + 1}`}`);
    }
    if (await question(page).isVisible()) await page.keyboard.press("Escape");
  }
}

/** For people who want to look at the views too: pictures in the folder that DTV_SHOTS names. */
async function shoot(page: Page, name: string) {
  const folder = process.env["DTV_SHOTS"];
  if (folder) await page.screenshot({ path: join(folder, `${name}.png`) });
}

function fakedMedia(): Fakes {
  const fakes = mediaFakes();
  fakes.player = played();
  fakes.photo = { state: "shown", path: `${stick}/Photos/photo 00001.jpg`, width: 4000, height: 3000, zoom: 100, index: 1, of: 7 };
  fakes.servers = [
    { id: 1, name: "Attic", address: "192.0.2.7", online: true, wakable: true },
    { id: 2, name: "Cellar", address: "192.0.2.8", online: false, wakable: true },
  ];
  fakes.searching = true;
  fakes.favourites.add(String(film["path"]));
  return fakes;
}

for (const [width, height] of [
  [1280, 800],
  [390, 740],
] as const) {
  test.describe(`at ${width} by ${height}`, () => {
    test.use({ viewport: { width, height } });

    test("axe-core finds nothing on any view", async ({ host, open }) => {
      test.slow();
      await fill(host);
      const page = await open("/", { prepare: fakedMedia().prepare });
      const findings: string[] = [];
      await walk(page, host, inside, async (what) => {
        for (const [mode, media] of Object.entries(modes)) {
          // Without motion, the colours of the mode are there at once.
          await page.emulateMedia({ ...media, reducedMotion: "reduce" });
          await shoot(page, `${width}-${what}-${mode}`);
          findings.push(...(await axeFindings(page)).map((finding) => `${what}, ${mode}: ${finding}`));
        }
      });
      expect(findings).toEqual([]);
    });

    test("every view fits in every language", async ({ host, open }) => {
      test.slow();
      await fill(host);
      const page = await open("/", { prepare: fakedMedia().prepare });
      const wide: string[] = [];
      for (const [language, tag] of Object.entries({ deu: "de", fra: "fr", spa: "es", tur: "tr" })) {
        await languageMenu(page).selectOption(language);
        await expect(page.locator("html")).toHaveAttribute("lang", tag);
        await walk(page, host, {}, async (what) => {
          await shoot(page, `${width}-${what}-${tag}`);
          wide.push(...(await tooWide(page)).map((element) => `${what}, ${tag}: ${element}`));
        });
      }
      expect(wide).toEqual([]);
    });
  });
}
