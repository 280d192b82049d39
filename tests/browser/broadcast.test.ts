import type { Locator, Page } from "@playwright/test";
import { mkdir } from "node:fs/promises";
import { join } from "node:path";
import { connectAntenna, importChannels, tv } from "./broadcast";
import { expect, question, test, tooWide } from "./fixtures";

/** The panels of the scan and of the recordings, at an antenna. */

const scanPanel = (page: Page): Locator => page.getByRole("main", { name: "Channel search" });
const progress = (page: Page): Locator => scanPanel(page).getByRole("region", { name: "Progress" });
const recordingsPanel = (page: Page): Locator => page.getByRole("main", { name: "Recordings" });
const recordings = (page: Page): Locator =>
  recordingsPanel(page).getByRole("region", { name: "Recordings" }).getByRole("listitem");
const timers = (page: Page): Locator =>
  recordingsPanel(page).getByRole("region", { name: "Timers" }).getByRole("listitem");

test("a scan of an antenna without multiplexes finds nothing", async ({ host, open }) => {
  const folder = join(host.files, "empty");
  await mkdir(folder);
  await tv(host, "antenna", folder);
  const page = await open("/#scan");
  await expect(scanPanel(page)).toContainText("No channels yet: scan");
  await expect(scanPanel(page)).toContainText("The folder has no multiplexes.");
  await scanPanel(page).getByRole("button", { name: "Scan" }).click();
  await expect(progress(page)).toContainText("Nothing found");
  await expect(progress(page)).toContainText("no service was found");
});

test("the progress of a scan is shown, and it can be cancelled", async ({ open }) => {
  const commands: string[] = [];
  let state = "running";
  const page = await open("/#scan", {
    // The real scan of a small folder is over before a viewer could cancel it.
    prepare: (page) =>
      page.routeWebSocket("**/jsonrpc", (socket) => {
        const server = socket.connectToServer();
        socket.onMessage((text) => {
          const { id, method, params } = JSON.parse(String(text));
          if (method !== "tv" || params.words[0] !== "scan") return server.send(text);
          commands.push(params.words.join(" "));
          if (params.words[1] === "cancel") state = "cancelled";
          const at = state === "running" ? { at: "air", mhz: 506, strength: 81, quality: 93 } : {};
          const facts = { medium: "all", percent: 40, multiplex: 2, multiplexes: 5, services: 7, seconds: 3, messages: [] };
          socket.send(JSON.stringify({ jsonrpc: "2.0", id, result: { state, ...facts, ...at } }));
        });
      }),
  });
  await expect(progress(page).getByRole("progressbar")).toHaveAttribute("value", "40");
  for (const text of ["The scan runs.", "2 of 5", "Air, 506 MHz", "81 %, quality 93 %"]) {
    await expect(progress(page)).toContainText(text);
  }
  await expect(scanPanel(page).getByRole("button", { name: "Scan" })).toBeDisabled();
  expect(commands).not.toContain("scan cancel");
  await progress(page).getByRole("button", { name: "Cancel" }).click();
  await expect(progress(page)).toContainText("The scan was cancelled");
  expect(commands).toContain("scan cancel");
  await expect(scanPanel(page).getByRole("button", { name: "Scan" })).toBeEnabled();

  await scanPanel(page).getByRole("button", { name: "Satellite" }).click();
  await scanPanel(page).getByRole("checkbox", { name: /^Update/ }).check();
  await scanPanel(page).getByRole("button", { name: "Scan" }).click();
  await expect.poll(() => commands).toContain("scan satellite update");
});

test("a scan finds the antenna's services, and a channel is recorded", async ({ host, open }) => {
  test.slow();
  await connectAntenna(host);
  const page = await open("/#channels");
  await page.getByRole("main", { name: "Channels" }).getByRole("button", { name: "Scan" }).click();
  const table = scanPanel(page).getByRole("table", { name: "Multiplexes" });
  const { multiplexes } = (await tv(host, "antenna")) as { multiplexes: { mhz: number; services: number }[] };
  expect(multiplexes.length).toBeGreaterThan(1);
  await expect(table.getByRole("row")).toHaveCount(multiplexes.length + 1);
  for (const { mhz } of multiplexes) await expect(table.getByRole("cell", { name: String(mhz), exact: true })).toBeVisible();
  const services = multiplexes.reduce((sum, each) => sum + each.services, 0);
  await expect(progress(page)).toContainText(`Done: ${services} added, 0 changed, 0 removed.`);
  await page.getByRole("navigation", { name: "Views" }).getByRole("button", { name: "Channels" }).click();
  const listed = page.getByRole("main", { name: "Channels" });
  await expect(listed.getByRole("status")).toHaveText(`${services} Channels`);

  await listed.locator(".channel-tune").first().click();
  await expect(listed.locator('.channel[data-current="true"]')).toHaveCount(1);
  await expect.poll(() => tv(host, "tuner")).toMatchObject({ result: "picture" });
  await page.getByRole("navigation", { name: "Views" }).getByRole("button", { name: "Recordings" }).click();
  await expect(recordingsPanel(page)).toContainText("No recordings yet.");
  await recordingsPanel(page).getByRole("combobox", { name: "Length" }).selectOption("2 h");
  await recordingsPanel(page).getByRole("button", { name: "Record now" }).click();
  await expect(recordings(page)).toHaveCount(1);
  await expect(recordings(page)).toContainText("records");
  await expect(timers(page)).toHaveCount(1);
  // Long enough to be played.
  const length = async () => ((await tv(host, "recordings")) as { recordings: { seconds: number }[] }).recordings[0]?.seconds;
  await expect.poll(length, { timeout: 60_000 }).toBeGreaterThan(8);
  await recordings(page).getByRole("button", { name: "Stop" }).click();
  await expect(recordings(page)).not.toContainText("records");
  await expect(recordings(page).getByRole("button", { name: "Stop" })).toHaveCount(0);
  await expect(timers(page)).toHaveCount(0);

  await recordings(page).getByRole("button", { name: /^Play/ }).click();
  const player = recordingsPanel(page).getByRole("region", { name: "Playback" });
  await player.getByRole("button", { name: "Pause" }).click();
  await expect.poll(() => tv(host, "playback")).toMatchObject({ paused: true });
  await expect(player.getByRole("slider", { name: "Position" })).toBeVisible();
  await player.getByRole("button", { name: "10 seconds back" }).click();
  await expect(player.locator(".seek-time")).toHaveText(/^0:00 \/ 0:/);
  await player.getByRole("button", { name: "Resume" }).click();
  await expect.poll(() => tv(host, "playback")).toMatchObject({ paused: false });
  await player.getByRole("button", { name: "Stop" }).click();
  await expect(player).toHaveCount(0);
  expect(await tv(host, "playback")).toMatchObject({ recording: null });

  await recordings(page).getByRole("button", { name: /^Rename/ }).click();
  await recordings(page).getByRole("textbox", { name: "Title" }).fill("Kept for later");
  await recordings(page).getByRole("button", { name: "Save" }).click();
  await expect(recordings(page)).toContainText("Kept for later");

  // What is kept is not deleted.
  const keep = recordings(page).getByRole("button", { name: "Keep: Kept for later" });
  await keep.click();
  await expect(keep).toHaveAttribute("aria-pressed", "true");
  expect(await tv(host, "recordings")).toMatchObject({ recordings: [{ title: "Kept for later", kept: true }] });
  const remove = async () => {
    await recordings(page).getByRole("button", { name: "Delete: Kept for later" }).click();
    await question(page).getByRole("button", { name: "Delete" }).click();
  };
  await remove();
  await expect(recordings(page).getByRole("alert")).toBeVisible();
  expect(await tv(host, "recordings")).toMatchObject({ total: 1 });
  await keep.click();
  await expect(keep).toHaveAttribute("aria-pressed", "false");
  await remove();
  await expect(recordings(page)).toHaveCount(0);
  expect(await tv(host, "recordings")).toMatchObject({ total: 0 });
});

test("timers are listed and deleted, and a refused recording tells why", async ({ host, open }) => {
  const page = await open("/#recordings");
  await recordingsPanel(page).getByRole("button", { name: "Record now" }).click();
  await expect(recordingsPanel(page).getByRole("alert")).toBeVisible();
  await importChannels(host, [{ name: "Alpha", number: 1 }]);
  await tv(host, "record", "1", "+60", "30");
  await expect(timers(page)).toHaveCount(1);
  await expect(timers(page)).toContainText("Alpha");
  await timers(page).getByRole("button", { name: /^Delete/ }).click();
  await question(page).getByRole("button", { name: "Cancel" }).click();
  await expect(question(page)).toHaveCount(0);
  await expect(timers(page)).toHaveCount(1);
  await timers(page).getByRole("button", { name: /^Delete/ }).click();
  await question(page).getByRole("button", { name: "Delete" }).click();
  await expect(timers(page)).toHaveCount(0);
  expect(await tv(host, "timers")).toEqual({ timers: [] });
});

for (const width of [360, 800]) {
  test.describe(`at a width of ${width}`, () => {
    test.use({ viewport: { width, height: 740 } });

    test("the panels of the broadcast fit", async ({ host, open }) => {
      test.slow();
      await connectAntenna(host);
      const page = await open("/#scan");
      await scanPanel(page).getByRole("button", { name: "Scan" }).click();
      await expect(progress(page)).toContainText("Done:");
      expect(await tooWide(page), "scan").toEqual([]);

      const choose = (name: string) =>
        page.getByRole("navigation", { name: "Views" }).getByRole("button", { name }).click();
      await choose("Channels");
      const listed = page.getByRole("main", { name: "Channels" });
      await listed.locator(".channel-tune").first().click();
      await listed.getByRole("button", { name: /^Edit/ }).nth(1).click();
      await expect(page.getByRole("textbox", { name: "Name" })).toBeVisible();
      expect(await tooWide(page), "channels").toEqual([]);

      await choose("Programme guide");
      // The set receives the events of the channel that it shows.
      await page.locator(".guide-event").first().click({ timeout: 30_000 });
      await expect(page.getByRole("complementary", { name: "Details" })).toBeVisible();
      expect(await tooWide(page), "guide").toEqual([]);

      await choose("Recordings");
      await recordingsPanel(page).getByRole("button", { name: "Record now" }).click();
      await expect(recordings(page)).toHaveCount(1);
      await recordings(page).getByRole("button", { name: /^Rename/ }).click();
      await recordings(page).getByRole("button", { name: /^Delete/ }).click();
      await expect(question(page)).toBeVisible();
      expect(await tooWide(page), "recordings").toEqual([]);
    });
  });
}
