import type { Locator, Page } from "@playwright/test";
import { spawn } from "node:child_process";
import { once } from "node:events";
import { mkdir, mkdtemp, open as openFile, rm } from "node:fs/promises";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { importChannels, tv } from "./broadcast";
import { expect, logRows, test } from "./fixtures";
import { bin, type Host } from "./host";

/** An evening with the television, as a viewer has it after "make run": nothing on the way to the set is replaced. */

const main = (page: Page, name: string): Locator => page.getByRole("main", { name });
const choose = (page: Page, view: string) =>
  page.getByRole("navigation", { name: "Views" }).getByRole("button", { name: view }).click();
const channel = (page: Page, word: string): Locator => page.locator(`.channel[data-word="${word}"]`);
const recordings = (page: Page): Locator =>
  main(page, "Recordings").getByRole("region", { name: "Recordings" }).getByRole("listitem");
const progress = (page: Page): Locator => main(page, "Channel search").getByRole("region", { name: "Progress" });

const resultUri = "/tv/ws/notify/broadcast/chg_channel_res";
/** As a line of the log names it. */
const resultName = "broadcast/chg_channel_res";
const services = 15;
// Of dtv-multiplexes: a service with two sound tracks, and one of the same multiplex.
const cinema = { number: 2, word: "air:2", name: "Ciné Forêt" };
const shore = { number: 4, word: "air:4", name: "Вечерний берег" };

interface Event {
  id: number;
  title: string;
  start: string;
  seconds: number;
}
const noEvent: Event = { id: 0, title: "", start: "1970-01-01T00:00:00Z", seconds: 0 };

interface Recording {
  title: string;
  channel: string;
  status: string;
  bytes: number;
}

/** Waits until the picture has changed often: the frames of a picture that stands still are all the same. */
async function pictureMoves(page: Page) {
  const frames = new Set<string>();
  await expect
    .poll(async () => {
      const canvas = main(page, "Picture").locator("canvas");
      frames.add(await canvas.evaluate((element) => (element as HTMLCanvasElement).toDataURL("image/jpeg")));
      return frames.size;
    })
    .toBeGreaterThan(4);
}

const listed = async (host: Host): Promise<Recording[]> =>
  (await tv(host, "recordings"))["recordings"] as unknown as Recording[];

test.describe("with the antenna of make run", () => {
  test.use({
    allowedErrors: [/WebSocket connection to .* failed/],
    hostArgs: async ({}, use) => {
      const antenna = await mkdtemp(join(tmpdir(), "dtv-evening-"));
      const child = spawn(join(bin, "dtv-multiplexes"), [antenna, "--seconds", "6", "--days", "2"], { stdio: "ignore" });
      const [code] = (await once(child, "exit")) as [number | null];
      expect(code, "dtv-multiplexes").toBe(0);
      await use(["--antenna", antenna]);
      await rm(antenna, { recursive: true });
    },
  });

  test("scan, watch, record, rename, and all of it is there after kill -9", async ({ host, open }) => {
    test.slow();
    const page = await open("/");

    await test.step("the button scans, and shows how far it is", async () => {
      await choose(page, "Channels");
      await expect(main(page, "Channels")).toContainText("No channels yet: scan");
      await main(page, "Channels").getByRole("button", { name: "Scan" }).click();
      await expect(progress(page)).toContainText(`Done: ${services} added, 0 changed, 0 removed.`);
      await expect(progress(page).getByRole("progressbar")).toHaveAttribute("value", "100");
      await choose(page, "Channels");
      await expect(main(page, "Channels").getByRole("status")).toHaveText(`${services} Channels`);
    });

    await test.step("a channel is tuned: its result is reported, its banner is shown, the picture moves", async () => {
      await choose(page, "Request");
      await page.getByRole("searchbox").fill(resultUri);
      const bell = page.getByRole("button", { name: `Subscribe: ${resultUri}` });
      if ((await bell.getAttribute("aria-pressed")) === "false") await bell.click();
      await expect(bell).toHaveAttribute("aria-pressed", "true");
      await page.getByRole("region", { name: "Live" }).getByRole("button", { name: "Clear" }).click();

      await choose(page, "Channels");
      await channel(page, shore.word).locator(".channel-tune").click();
      await choose(page, "Request");
      await expect(logRows(page, "Notifications").filter({ hasText: resultName }).first()).toContainText("VALUE 0");
      await choose(page, "Picture");
      await pictureMoves(page);
      // CH- is the channel below in the list.
      await main(page, "Picture").locator("canvas").click();
      await page.keyboard.press("PageDown");
      const banner = main(page, "Picture").locator(".screen-banner");
      await expect(banner).toContainText(`${cinema.number} ${cinema.name}`);
      await expect(banner.getByRole("progressbar")).toBeVisible(); // of the present event, which the broadcast announces
      await pictureMoves(page);
      await expect(main(page, "Picture").getByRole("status")).toHaveText("");
    });

    await test.step("a key chooses the other sound track", async () => {
      const chosen = async () => {
        const { audio } = (await tv(host, "tuner")) as { audio: { language: string; chosen: boolean }[] };
        return audio.filter((each) => each.chosen).map(({ language }) => language);
      };
      await expect.poll(async () => (await chosen()).length).toBe(1);
      const [before] = await chosen();
      await choose(page, "Remote control");
      await main(page, "Remote control").getByRole("button", { name: "MTS/AUDIO" }).click();
      await expect.poll(chosen).toEqual([before === "fra" ? "eng" : "fra"]);
      await choose(page, "Picture");
      await pictureMoves(page);
    });

    // An event that does not end in the middle of the test.
    let present = noEvent;
    await expect
      .poll(
        async () => {
          const { now } = (await tv(host, "guide", String(cinema.number))) as { now: Event | null };
          present = now ?? noEvent;
          return (Date.parse(present.start) - Date.now()) / 1000 + present.seconds;
        },
        { timeout: 120_000 },
      )
      .toBeGreaterThan(100);
    await test.step("the present event is recorded from the guide, until it is stopped", async () => {
      await choose(page, "Programme guide");
      await page.locator(`.guide-event`, { hasText: present.title }).first().click();
      const box = page.getByRole("complementary", { name: "Details" });
      await expect(box.getByRole("heading")).toHaveText(present.title);
      await expect(box).toContainText(`${cinema.number} ${cinema.name}`);
      await box.getByRole("button", { name: "Record" }).click();
      await expect(box).toContainText("A timer will record it.");
      await choose(page, "Recordings");
      await expect(recordings(page)).toHaveCount(1);
      await expect(recordings(page)).toContainText("records");
      await expect(recordings(page)).toContainText(present.title);
      await expect.poll(async () => (await listed(host))[0]?.bytes ?? 0).toBeGreaterThan(1_500_000);
      await recordings(page).getByRole("button", { name: "Stop" }).click();
      await expect(recordings(page)).toContainText("partial");
    });

    const other = await open("/#screen");
    await test.step("the recording is played on the set's screen, and stopped", async () => {
      await recordings(page).getByRole("button", { name: "Play: " }).click();
      const bar = main(page, "Recordings").getByRole("region", { name: "Playback" });
      await expect(bar).toContainText(present.title);
      await pictureMoves(other);
      await bar.getByRole("button", { name: "Stop" }).click();
      await expect(bar).toHaveCount(0);
      await expect.poll(() => tv(host, "tuner")).toMatchObject({ channel: cinema.number, result: "picture" });
    });

    await choose(other, "Channels");
    await test.step("a channel that is renamed on one page has its new name on another", async () => {
      await expect(channel(other, shore.word)).toContainText(shore.name);
      await choose(page, "Channels");
      await page.getByRole("button", { name: `Edit: ${shore.name}`, exact: true }).click();
      await page.getByRole("textbox", { name: "Name" }).fill("Strand & Meer");
      await page.getByRole("textbox", { name: "Name" }).press("Enter");
      await expect(channel(other, shore.word)).toContainText("Strand & Meer");
    });

    await test.step("after kill -9 the channels, the recording and the guide are there", async () => {
      const names = async () => {
        const { channels } = (await tv(host, "channels")) as { channels: { number: number; name: string }[] };
        return channels.map(({ number, name }) => `${number} ${name}`);
      };
      const before = { names: await names(), recordings: await listed(host) };
      expect(before.names).toHaveLength(services);
      expect(before.names).toContain("4 Strand & Meer");
      await host.kill();
      await expect(page.locator(".connection")).toContainText("Disconnected");
      await host.start();
      await expect(page.locator(".connection")).toContainText("Connected");
      expect(await names()).toEqual(before.names);
      expect(await listed(host)).toEqual(before.recordings);
      const guide = await tv(host, "guide", "event", String(cinema.number), String(present.id));
      expect(guide).toMatchObject({ event: { title: present.title, start: present.start } });
      // The pages show it, too: the one that was open, and a new one.
      await expect(channel(other, shore.word)).toContainText("Strand & Meer");
      await choose(page, "Recordings");
      await expect(recordings(page)).toHaveCount(1);
      await expect(recordings(page)).toContainText(present.title);
      const late = await open("/#guide");
      await expect(late.locator(".guide-event", { hasText: present.title }).first()).toBeVisible();
      // The set shows the channel that it showed before.
      await choose(late, "Picture");
      await pictureMoves(late);
      expect(await tv(host, "tuner")).toMatchObject({ channel: cinema.number, result: "picture" });
    });
  });
});

/** The CRC of a section. */
function crc(bytes: Buffer): number {
  let value = -1;
  for (const byte of bytes) {
    value ^= byte << 24;
    for (let bit = 0; bit < 8; bit++) value = value < 0 ? (value << 1) ^ 0x04c11db7 : value << 1;
  }
  return value >>> 0;
}

const packet = (pid: number, payload: Buffer): Buffer =>
  Buffer.concat([Buffer.from([0x47, 0x40 | (pid >> 8), pid & 0xff, 0x10]), payload, Buffer.alloc(184, 0xff)], 188);

/**
 * A multiplex whose scan takes its whole time: what its only table announces never comes. Behind the table, a few packets
 * follow every million bytes; the rest is a hole, which takes no room on the disk.
 */
async function makeEndless(path: string, stream: number) {
  const table = Buffer.from([0, 0, 0xb0, 13, stream >> 8, stream & 0xff, 0xc1, 0, 0, 0, 1, 0xe1, 0, 0, 0, 0, 0]);
  table.writeUInt32BE(crc(table.subarray(1, 13)), 13);
  const nothing = Buffer.concat(Array<Buffer>(20).fill(packet(0x1fff, Buffer.alloc(0))));
  const file = await openFile(path, "w");
  for (let at = 0; at < 4e9; at += 1e6) await file.write(at === 0 ? Buffer.concat([packet(0, table), nothing]) : nothing, 0, null, at);
  await file.close();
}

test("a scan that takes long is cancelled, and the channels stay", async ({ host, open }) => {
  const folder = join(host.files, "slow");
  await mkdir(folder);
  const streams = [1, 2, 3, 4, 5];
  for (const stream of streams) await makeEndless(join(folder, `${stream}.ts`), stream);
  await importChannels(host, [{ name: "Alpha", number: 1 }]);
  await tv(host, "antenna", folder);
  const indexed = async () => ((await tv(host, "antenna")) as { multiplexes: unknown[] }).multiplexes.length;
  await expect.poll(indexed).toBe(streams.length);
  const page = await open("/#scan");
  await main(page, "Channel search").getByRole("button", { name: "Scan" }).click();
  await expect(progress(page)).toContainText(/[1-5] of 5/);
  await expect(progress(page)).toContainText(/Air, \d+ MHz/);
  await progress(page).getByRole("button", { name: "Cancel" }).click();
  await expect(progress(page)).toContainText("The scan was cancelled");
  expect(await tv(host, "scan")).toMatchObject({ state: "cancelled" });
  expect(await tv(host, "channels")).toMatchObject({ channels: [{ name: "Alpha" }] });
  await expect(main(page, "Channel search").getByRole("button", { name: "Scan" })).toBeEnabled();
});
