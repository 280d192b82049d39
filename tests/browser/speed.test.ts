import type { Page } from "@playwright/test";
import { expect, logRows, readList, test } from "./fixtures";
import { createSlowLine } from "./slow-line";

/** A flood of notifications, and what the first visit costs. The times are printed; the limits hold on a slow machine, too. */

const flood = 3000;
/** The log keeps as many lines. */
const kept = 10_000;

/** Gives the test the page's connection, to which it hands messages as the browser does: one task each. */
const exposeSocket = async (page: Page) => {
  await page.addInitScript(() => {
    const Real = WebSocket;
    window.WebSocket = class extends Real {
      constructor(url: string | URL) {
        super(url);
        Object.assign(window, { exposed: this });
      }
    };
  });
};

interface Measured {
  /** The longest time between two messages and after the last one: a task of the page, such as drawing the log. */
  longest: number;
  /** Tasks of 50 ms and more, as the browser counts them. */
  longTasks: number[];
  /** From the first message to the last one. */
  took: number;
  /** How often the log was drawn meanwhile. */
  drawn: number;
}

const floodPage = (page: Page): Promise<Measured> =>
  page.evaluate(async (count) => {
    const socket = (window as unknown as { exposed: WebSocket }).exposed;
    const ret = { longest: 0, longTasks: [] as number[], took: 0, drawn: 0 };
    const tasks = new PerformanceObserver((list) => ret.longTasks.push(...list.getEntries().map((entry) => entry.duration)));
    tasks.observe({ entryTypes: ["longtask"] });
    const bar = document.querySelector(".log-bar [role=status]")!;
    const drawing = new MutationObserver(() => ret.drawn++);
    drawing.observe(bar, { characterData: true, childList: true, subtree: true });
    const channel = new MessageChannel();
    const start = performance.now();
    let last = start;
    const uri = "/tv/ws/notify/volume_ctrl";
    await new Promise<void>((done) => {
      let sent = 0;
      channel.port1.onmessage = () => {
        const now = performance.now();
        ret.longest = Math.max(ret.longest, now - last);
        last = now;
        if (sent++ === count) {
          done();
          return;
        }
        const notification = { URI: uri, REQUEST: "NOTIFY", ITEMS: [{ volValue: sent % 100, muteStatus: 0 }] };
        const data = JSON.stringify({ jsonrpc: "2.0", method: "notify", params: { uri, notification } });
        socket.onmessage?.(new MessageEvent("message", { data }));
        channel.port2.postMessage(0);
      };
      channel.port2.postMessage(0);
    });
    ret.took = performance.now() - start;
    drawing.disconnect();
    // The browser reports long tasks a moment later.
    await new Promise((done) => setTimeout(done, 500));
    return ret;
  }, flood);

test("a flood of 3,000 notifications does not hold the page up, however full the log is", async ({ open }) => {
  const page = await open("/", { prepare: exposeSocket });
  await expect(page.getByText(/^\d+ URIs$/)).toBeVisible();
  const rounds: Measured[] = [];
  for (let sent = 0; sent < 2 * kept; sent += flood) rounds.push(await floodPage(page));
  for (const { longest, longTasks, took, drawn } of rounds) {
    console.log(
      `${flood} notifications in ${took.toFixed(0)} ms, drawn ${drawn} times, longest task ${longest.toFixed(0)} ms, ` +
        `${longTasks.length} tasks of 50 ms and more`,
    );
  }
  await expect(page.getByRole("region", { name: "Live" })).toContainText(`${rounds.length * flood} received`);
  await expect(logRows(page, "Notifications").first()).toContainText(`#${rounds.length * flood}`);
  for (const { longest, took, drawn } of rounds) {
    // 50 ms, ten times slower.
    expect(longest).toBeLessThan(500);
    // The log is drawn ten times a second.
    expect(drawn).toBeLessThanOrEqual(took / 100 + 2);
  }
});

/** A slow line's bits per second, and its delay there and back. */
const line = { bitsPerSecond: 400_000, roundTripMs: 150 };

for (const language of ["eng", "deu"]) {
  test(`over a slow line the list is there after few bytes, with a menu in ${language}`, async ({ browser, host }) => {
    expect((await host.dtvctl("tv", "config", "g_gui_lang__gui_language", language)).code).toBe(0);
    const slow = await createSlowLine(host.origin, line.bitsPerSecond, line.roundTripMs);
    const context = await browser.newContext();
    await context.addInitScript((token) => localStorage.setItem("dtv.token", token), host.token ?? "");
    const { uris } = await readList(host);
    const visit = async (name: string) => {
      const page = await context.newPage();
      const before = slow.down + slow.up;
      const began = performance.now();
      await page.goto(slow.origin, { waitUntil: "commit" });
      const shown = (count: number) => document.querySelector(".list-bar [role=status]")?.textContent?.startsWith(`${count} `);
      await page.waitForFunction(shown, uris.length);
      const bytes = slow.down + slow.up - before;
      const seconds = (performance.now() - began) / 1000;
      console.log(`${name} visit, ${language}: the list after ${bytes} bytes, ${seconds.toFixed(1)} s at 400 kbit/s and 150 ms`);
      // What follows the list: the panels and the language.
      await expect(page.locator("select.language")).toHaveValue(language);
      await expect(page.locator("html")).toHaveAttribute("lang", language.slice(0, 2));
      await page.goto(`${slow.origin}/#remote`);
      await expect(page.getByRole("main").getByRole("button", { name: "VOL+" })).toBeVisible();
      await page.close();
      return bytes;
    };
    const first = await visit("first");
    // 50,000 bytes arrive in a second.
    expect(first).toBeGreaterThan(30_000);
    expect(first).toBeLessThan(110_000);
    expect(await visit("second")).toBeLessThan(15_000);
    await context.close();
    slow.close();
  });
}
