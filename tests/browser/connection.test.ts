import type { Page } from "@playwright/test";
import { connection, expect, logRows, slider, test } from "./fixtures";
import { muteUri, volumeUri } from "./host";

/** What the page shows of its connection, and of a request that waits. */

const gap = /Not connected from \d\d:\d\d:\d\d\.\d{3} to \d\d:\d\d:\d\d\.\d{3} \(\d+\.\d s\)\./;
const response = (page: Page) => page.getByRole("region", { name: "Response" });
const getButton = (page: Page) => page.getByRole("form").getByRole("button", { name: "Get", exact: true });

interface Seen {
  state: string;
  at: number;
}

/** Records the states of the connection from now on, with their times in the page. */
const recordStates = (page: Page): Promise<void> =>
  connection(page).evaluate((element) => {
    const seen: Seen[] = [];
    Object.assign(window, { seen });
    const record = () => seen.push({ state: element.getAttribute("data-state")!, at: performance.now() });
    record();
    new MutationObserver(record).observe(element, { attributeFilter: ["data-state"] });
  });
const statesOf = (page: Page): Promise<Seen[]> => page.evaluate(() => (window as unknown as { seen: Seen[] }).seen);

type Answer = (message: { id: number; method: string }) => object | undefined;

/**
 * Counts the page's connections and pings; `answer` may answer a message in place of the host. While it is idle, nothing
 * else reaches the host, so that answers to a view's polling do not take the place of pings.
 */
function counter(answer: Answer) {
  const count = { sockets: 0, pings: 0, idle: false };
  const prepare = async (page: Page) => {
    await page.clock.install();
    await page.routeWebSocket("**/jsonrpc", (socket) => {
      count.sockets++;
      const server = socket.connectToServer();
      socket.onMessage((text) => {
        const message = JSON.parse(String(text));
        if (message.method === "ping") count.pings++;
        const own = answer(message);
        if (own) socket.send(JSON.stringify({ jsonrpc: "2.0", id: message.id, ...own }));
        else if (!count.idle) server.send(text);
      });
    });
  };
  return { count, prepare };
}

test.describe("a host that is stopped", () => {
  test.use({ allowedErrors: [/WebSocket/] });

  test("is shown as not answering, then as disconnected, and the log says what it misses", async ({ host, open }) => {
    const page = await open();
    await recordStates(page);
    const start = await page.evaluate(() => performance.now());
    host.pause();
    await expect(connection(page)).toHaveAttribute("data-state", "silent");
    await expect(connection(page)).toContainText("Not answering");
    // What is known stays usable until the connection counts as lost.
    await expect(slider(page)).toBeEnabled();
    await expect(connection(page)).toContainText("Disconnected");
    await expect(slider(page)).toBeDisabled();
    const lost = (await statesOf(page)).find(({ state }) => state === "waiting")!.at - start;
    console.log(`a stopped host was noticed after ${(lost / 1000).toFixed(1)} s`);

    host.resume();
    await expect(connection(page)).toContainText("Connected");
    await expect(logRows(page, "Notifications").filter({ hasText: gap })).toHaveCount(1);
    await expect(logRows(page, "Notifications").filter({ hasText: gap })).not.toContainText("#");
    const states = (await statesOf(page)).map(({ state }) => state);
    expect(states.slice(0, 3)).toEqual(["open", "silent", "waiting"]);
    await host.write(volumeUri, 43);
    await expect(slider(page)).toHaveValue("43");
    await expect(logRows(page, "Notifications").first()).toContainText("volValue 43");
  });
});

test.describe("a host that was killed", () => {
  test.use({ allowedErrors: [/WebSocket/] });

  test("leaves a gap in both logs, and a countdown while it is away", async ({ host, open }) => {
    const page = await open();
    await page.getByRole("button", { name: "Calls" }).click();
    await page.getByRole("switch", { name: "Trace every platform call" }).check();
    await host.kill();
    await expect(connection(page)).toContainText(/Disconnected\d s/);
    await expect(connection(page).getByRole("button", { name: "Retry" })).toBeVisible();
    await host.start();
    await expect(logRows(page, "Calls").filter({ hasText: gap })).toHaveCount(1);
    await page.getByRole("button", { name: "Notifications" }).first().click();
    await expect(logRows(page, "Notifications").filter({ hasText: gap })).toHaveCount(1);
    await expect(logRows(page, "Notifications").filter({ hasText: gap })).not.toContainText("#");
  });
});

const unknown = { error: { code: -32601, message: "there is no such method" } };

test("a host that does not know the method ping counts as alive", async ({ open }) => {
  const { count, prepare } = counter(({ method }) => (method === "ping" ? unknown : undefined));
  const page = await open("/", { prepare });
  // Without an answer, the page would have given the connection up before its fourth ping.
  const before = count.pings;
  count.idle = true;
  await expect.poll(() => count.pings).toBeGreaterThan(before + 3);
  expect(count.sockets).toBe(1);
  await expect(connection(page)).toHaveAttribute("data-state", "open");
});

test("a machine that slept does not reconnect for nothing", async ({ open }) => {
  const { count, prepare } = counter(({ method }) => (method === "ping" ? { result: {} } : undefined));
  const page = await open("/", { prepare });
  count.idle = true;
  for (let sleep = 0; sleep < 2; sleep++) {
    const before = count.pings;
    await page.clock.fastForward(3_600_000);
    await expect.poll(() => count.pings).toBeGreaterThan(before);
  }
  await expect(connection(page)).toHaveAttribute("data-state", "open");
  expect(count.sockets).toBe(1);
});

test("a request that waits says so and can be given up; its late answer is dropped", async ({ host, open }) => {
  await host.write(volumeUri, 31);
  let gets = 0;
  const page = await open(`/#${volumeUri}`, {
    prepare: async (page) => {
      page.on("websocket", (socket) =>
        socket.on("framesent", ({ payload }) => {
          const { method, params } = JSON.parse(String(payload));
          if (method === "get" && params.uri === volumeUri && params.trace) gets++;
        }),
      );
    },
  });
  await host.dtvctl("tv", "fault", "a_vextvapi_volctrl_getVolume", "--delay", "6000");
  await getButton(page).click();
  await expect(getButton(page)).toBeDisabled();
  // Neither a second click nor Enter sends a second request.
  await getButton(page).click({ force: true });
  await getButton(page).press("Enter");
  await expect(getButton(page)).toBeFocused();
  await expect(page.getByRole("form")).toContainText(/Waiting for the answer [1-9]\d* s/);
  await page.getByRole("form").getByRole("button", { name: "Cancel" }).click();
  await expect(response(page)).toContainText("You stopped waiting. The set may still carry the request out.");
  await expect(page.getByRole("form").getByRole("button", { name: "Cancel" })).toHaveCount(0);
  await expect(getButton(page)).toBeEnabled();
  expect(gets).toBe(1);

  // The host answers a client's requests in their order.
  await page.goto(`${host.origin}/#${muteUri}`);
  await getButton(page).click();
  await expect(response(page)).toContainText("ret 0");
  await page.goto(`${host.origin}/#${volumeUri}`);
  await expect(response(page)).toContainText("You stopped waiting.");
  await expect(response(page)).not.toContainText("ret 0");

  await host.dtvctl("tv", "fault", "--clear");
  await getButton(page).click();
  await expect(response(page)).toContainText("ret 0");
});

test.describe("a panel whose code does not arrive", () => {
  test.use({ allowedErrors: [/Failed to load resource/] });

  test("says so, and is there once the page is loaded again", async ({ open }) => {
    const code = /\/remote-panel-[^/]*\.js$/;
    const page = await open("/#remote", {
      prepare: async (page) => void (await page.route(code, (route) => route.abort())),
    });
    await expect(page.getByRole("alert")).toContainText("This view could not be loaded.");
    await page.unroute(code);
    await page.getByRole("alert").getByRole("button", { name: "Retry" }).click();
    await expect(page.getByRole("main").getByRole("button", { name: "VOL+" })).toBeVisible();
    await expect(page.getByRole("alert")).toHaveCount(0);
  });
});
