import type { Locator, Page } from "@playwright/test";
import { expect as base, languageMenu, slider, test } from "./fixtures";
import { volumeUri, type Host } from "./host";

/** The token in the address that dtv-host prints, and a page without it. */

const someToken = "5e".repeat(32);
const staleToken = "0d".repeat(32);

interface Call {
  id: number;
  method: string;
  params?: { token?: string; uri?: string };
}

interface Guard {
  /** The calls of the page, by connection. */
  connections: Call[][];
  token: string;
  prepare: (page: Page) => Promise<void>;
}

/**
 * A proxy between page and host that requires a token to control the set, or for every call. For "nothing" it behaves
 * like a host without the method "authorize". If the host has a token too, the proxy passes it on, or for "nothing" gives
 * the host its token itself.
 */
function guard(
  host: Host,
  wantedFor: "control" | "everything" | "nothing",
  beforeRefusal: (page: Page) => Promise<void> = async () => {},
): Guard {
  const token = host.token ?? someToken;
  const connections: Call[][] = [];
  const prepare = async (page: Page) => {
    if (wantedFor === "everything")
      await page.route("**/list.json", (route) =>
        route.request().headers()["authorization"] === `Bearer ${token}` ? route.continue() : route.fulfill({ status: 401 }),
      );
    await page.routeWebSocket("**/jsonrpc", (socket) => {
      const server = socket.connectToServer();
      const calls: Call[] = [];
      connections.push(calls);
      let authorized = wantedFor === "nothing";
      if (authorized && host.token) {
        const own = "of the proxy";
        server.onMessage((text) => {
          if (JSON.parse(String(text)).id !== own) socket.send(text);
        });
        server.send(JSON.stringify({ jsonrpc: "2.0", id: own, method: "authorize", params: { token: host.token } }));
      }
      socket.onMessage(async (text) => {
        const call = JSON.parse(String(text)) as Call;
        calls.push(call);
        const refuse = (code: number, message: string) =>
          socket.send(JSON.stringify({ jsonrpc: "2.0", id: call.id, error: { code, message } }));
        if (call.method === "authorize") {
          if (wantedFor === "nothing") return refuse(-32601, "unknown method");
          if (call.params?.token !== token) {
            await beforeRefusal(page);
            return refuse(-32006, "forbidden");
          }
          authorized = true;
          if (!host.token) return socket.send(JSON.stringify({ jsonrpc: "2.0", id: call.id, result: {} }));
        }
        if (!authorized && (wantedFor === "everything" || call.method === "tv")) return refuse(-32006, "forbidden");
        server.send(text);
      });
    });
  };
  return { connections, token, prepare };
}

// Every call of the page passes through this process, which makes it slow.
test.describe.configure({ timeout: 240_000 });
const expect = base.configure({ timeout: 60_000 });

const stored = (page: Page): Promise<string | null> => page.evaluate(() => localStorage.getItem("dtv.token"));
const notice = (page: Page): Locator => page.locator(".access-notice");
const configLines = (page: Page): Locator => page.locator(".config-line");
const lookOnly =
  "This view needs the token: open the address that dtv-host printed (it ends with #token=...)";
const noAccess = "This page may not use the television: open the address that dtv-host printed (it ends with #token=...)";

test("the token is removed from the address, stored, and sent before any other call", async ({ host, open }) => {
  const { connections, token, prepare } = guard(host, "control");
  const page = await open(`/#token=${token}`, { token: null, prepare });
  expect(page.url()).toBe(`${host.origin}/`);
  expect(await stored(page)).toBe(token);
  await page.goto(`${host.origin}/#configuration`);
  await page.reload();
  await expect(configLines(page).first()).toBeVisible();
  await expect(notice(page)).toHaveCount(0);
  expect(connections).toHaveLength(2);
  for (const calls of connections) {
    expect(calls[0]).toMatchObject({ method: "authorize", params: { token } });
    expect(calls.filter(({ method }) => method === "authorize")).toHaveLength(1);
  }
});

test("a page without the token has no configuration, and says why", async ({ host, open }) => {
  const { connections, token, prepare } = guard(host, "control");
  const page = await open("/#configuration", { token: null, prepare });
  await expect(notice(page)).toHaveText(lookOnly);
  await expect(page.getByRole("main", { name: "Configuration" }).locator(".access-notice")).toBeVisible();
  await expect(configLines(page)).toHaveCount(0);
  // Calls that need no token still work.
  await slider(page).fill("37");
  await expect.poll(() => host.read(volumeUri)).toBe(37);
  for (const [language, words] of Object.entries({
    deu: "Diese Ansicht braucht das Token",
    fra: "Cette vue demande le jeton",
    spa: "Esta vista necesita el token",
    tur: "Bu görünüm için belirteç gerekir",
    eng: "This view needs the token",
  })) {
    await languageMenu(page).selectOption(language);
    await expect(notice(page)).toContainText(words);
    await expect(notice(page)).toContainText("#token=...");
  }
  // The page does not repeat the refused call.
  expect(connections.flat().filter(({ method }) => method === "tv")).toHaveLength(1);
  // The other view needs no token.
  await page.getByRole("navigation", { name: "Views" }).getByRole("button", { name: "Remote control" }).click();
  await expect(notice(page)).toHaveCount(0);

  // The address that dtv-host printed, in the same tab.
  await page.goto(`${host.origin}/#token=${token}`);
  await expect.poll(() => connections.at(-1)?.[0]?.method).toBe("authorize");
  await page.goto(`${host.origin}/#configuration`);
  await expect(configLines(page).first()).toBeVisible();
  await expect(notice(page)).toHaveCount(0);
});

test("a token that the host refuses is forgotten", async ({ host, open }) => {
  const { connections, prepare } = guard(host, "control");
  const page = await open("/#configuration", { token: staleToken, prepare });
  await expect(notice(page)).toHaveText(lookOnly);
  await expect.poll(() => stored(page)).toBeNull();
  await page.reload();
  await expect(notice(page)).toHaveText(lookOnly);
  expect(connections.map((calls) => calls.filter(({ method }) => method === "authorize").length)).toEqual([1, 0]);
});

test("when a token is refused, a token that another page has stored meanwhile is kept", async ({ host, open }) => {
  const newer = host.token ?? someToken;
  const { connections, prepare } = guard(host, "control", (page) =>
    page.evaluate((token) => localStorage.setItem("dtv.token", token), newer),
  );
  const page = await open("/#configuration", { token: staleToken, prepare });
  await expect(notice(page)).toHaveText(lookOnly);
  expect(await stored(page)).toBe(newer);
  await page.reload();
  await expect(configLines(page).first()).toBeVisible();
  expect(connections.at(-1)?.[0]).toMatchObject({ method: "authorize", params: { token: newer } });
});

test("with a host that has no tokens the page works, and keeps its token", async ({ host, open }) => {
  const { connections, prepare } = guard(host, "nothing");
  const page = await open(`/#token=${someToken}`, { token: null, prepare });
  await page.goto(`${host.origin}/#configuration`);
  await expect(configLines(page).first()).toBeVisible();
  await expect(notice(page)).toHaveCount(0);
  expect(connections[0]?.[0]?.method).toBe("authorize");
  expect(await stored(page)).toBe(someToken);
});

test.describe("a host that requires the token", () => {
  // The browser reports the list that is refused.
  test.use({ allowedErrors: [/401/] });

  test("for every call serves the page once it has the token", async ({ host, open }) => {
    const { token, prepare } = guard(host, "everything");
    const page = await open("/", { token: null, prepare, usable: false });
    await expect(notice(page)).toHaveText(noAccess);
    // There is no second message about the other refused calls.
    await expect(page.locator(".notice p")).toHaveCount(0);
    await page.goto(`${host.origin}/#configuration`);
    await expect(notice(page)).toHaveText(noAccess);

    // The subscriptions are kept, and work once the page has the token.
    const watched = await page.evaluate(() => localStorage.getItem("dtv.watched"));
    expect(watched).toContain("volume_ctrl");
    await page.goto(`${host.origin}/#token=${token}`);
    await expect(slider(page)).toBeEnabled();
    await expect(notice(page)).toHaveCount(0);
    await slider(page).fill("44");
    await expect(page.getByRole("list", { name: "Notifications", exact: true })).toContainText("volValue 44");
  });
});
