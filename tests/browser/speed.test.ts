import type { Page } from "@playwright/test";
import { expect, logRows, test } from "./fixtures";

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

test("the first visit transfers little", async ({ open }) => {
  const bytes = { page: 0, connection: 0 };
  let listed = 0;
  const page = await open("/", {
    prepare: async (page) => {
      const browser = await page.context().newCDPSession(page);
      await browser.send("Network.enable");
      browser.on("Network.loadingFinished", ({ encodedDataLength }) => (bytes.page += encodedDataLength));
      browser.on("Network.webSocketFrameReceived", ({ response }) => {
        bytes.connection += response.payloadData.length;
        if (response.payloadData.includes('"uris"')) listed = response.payloadData.length;
      });
    },
  });
  await expect(page.getByText(/^\d+ URIs$/)).toBeVisible();
  console.log(`the page: ${bytes.page} bytes compressed; over the connection: ${bytes.connection}, of them the list ${listed}`);
  // At 400 kbit/s, 50,000 bytes arrive in a second.
  expect(bytes.page).toBeGreaterThan(10_000);
  expect(bytes.page).toBeLessThan(100_000);
  expect(bytes.connection).toBeLessThan(350_000);
});
