import { expect, test as base, type Locator, type Page, type Request } from "@playwright/test";
import { readdirSync } from "node:fs";
import { join } from "node:path";
import { createHost, web, type Host } from "./host";

/** What every test uses: its own host, and pages whose console errors and requests to other origins fail the test. */

interface Opening {
  /** The token in the browser's storage: by default the host's, null for none. */
  token?: string | null;
  /** Called before the page is loaded. */
  prepare?: (page: Page) => Promise<void>;
  /** False if the host does not allow the page to read the volume. */
  usable?: boolean;
}

interface Fixtures {
  /** Options of dtv-host. */
  hostArgs: string[];
  host: Host;
  /** Console messages that this test expects. */
  allowedErrors: RegExp[];
  open: (path?: string, opening?: Opening) => Promise<Page>;
}

const panels = readdirSync(join(web, "assets"))
  .filter((name) => /-panel-.*\.js$/.test(name))
  .map((name) => `/assets/${name}`);

export const test = base.extend<Fixtures>({
  allowedErrors: [[], { option: true }],

  hostArgs: [[], { option: true }],

  host: async ({ hostArgs }, use) => {
    const host = await createHost(hostArgs);
    await use(host);
    await host.dispose();
  },

  // Opens a page of the host with its own storage, like another device.
  open: async ({ browser, host, allowedErrors, viewport }, use) => {
    const complaints: string[] = [];
    const pages: Page[] = [];
    await use(async (path = "/", { token = host.token ?? null, prepare, usable = true } = {}) => {
      const localStorage = token === null ? [] : [{ name: "dtv.token", value: token }];
      const storageState = { cookies: [], origins: [{ origin: host.origin, localStorage }] };
      const context = await browser.newContext({ viewport, storageState });
      await context.grantPermissions(["clipboard-read", "clipboard-write"], { origin: host.origin });
      const page = await context.newPage();
      pages.push(page);
      page.on("console", (message) => {
        if (!["error", "warning"].includes(message.type())) return;
        if (!allowedErrors.some((allowed) => allowed.test(message.text()))) complaints.push(message.text());
      });
      page.on("pageerror", (error) => complaints.push(String(error)));
      const foreign = (address: string) => {
        if (new URL(address).host !== new URL(host.origin).host) complaints.push(`request to ${address}`);
      };
      page.on("request", (request) => foreign(request.url()));
      page.on("websocket", (socket) => foreign(socket.url()));
      const arrived = new Set<string>();
      const arrive = (request: Request) => void arrived.add(new URL(request.url()).pathname);
      page.on("requestfinished", arrive);
      page.on("requestfailed", arrive);
      await prepare?.(page);
      await page.goto(host.origin + path);
      // These do not depend on the language of the page.
      await expect(connection(page)).toHaveAttribute("data-state", "open");
      await expect(page.locator(".volume input")).toBeEnabled({ enabled: usable });
      // The page loads the code of all panels in advance. A test that then ends the host causes no failed requests.
      if (usable) await expect.poll(() => panels.filter((file) => !arrived.has(file))).toEqual([]);
      return page;
    });
    for (const page of pages) await page.context().close();
    expect(complaints, "console errors and requests to other origins").toEqual([]);
  },
});

export const slider = (page: Page): Locator => page.getByRole("slider", { name: "Volume" });
export const muteButton = (page: Page): Locator => page.getByRole("button", { name: "Mute", exact: true });
export const languageMenu = (page: Page): Locator => page.locator("select.language");
/** The question that the page asks before it does what cannot be undone. */
export const question = (page: Page): Locator => page.getByRole("alertdialog");
export const connection = (page: Page): Locator => page.locator(".connection");
export const logRows = (page: Page, name: "Notifications" | "Calls"): Locator =>
  page.getByRole("list", { name, exact: true }).locator("> li:not(.empty)");

interface ListedUris {
  uris: { uri: string; values?: { value: string }[] }[];
}

/** Changes the list of URIs that pages loaded from now on get. */
export async function changeList(page: Page, change: (list: ListedUris) => void) {
  await page.route("**/list.json", async (route) => {
    const list = (await (await route.fetch()).json()) as ListedUris;
    change(list);
    await route.fulfill({ json: list });
  });
}

/** The list of URIs, as the host gives it to clients. */
export async function readList(host: Host): Promise<ListedUris> {
  const body = JSON.stringify({ jsonrpc: "2.0", id: 1, method: "list" });
  const reply = await fetch(`${host.origin}/jsonrpc`, { method: "POST", body });
  return ((await reply.json()) as { result: ListedUris }).result;
}

/** The visible elements that extend beyond the sides of the page. */
export const tooWide = (page: Page): Promise<string[]> =>
  page.evaluate(() => {
    const ret: string[] = [];
    if (document.documentElement.scrollWidth > innerWidth) ret.push("page");
    for (const element of document.querySelectorAll<HTMLElement>("#app *")) {
      // On a narrow screen the tabs are one line, which scrolls, and so are the choices of the player.
      if (!element.checkVisibility() || element.closest('[role="status"], .player-choices')) continue;
      if (element.parentElement?.closest(".tabs")) continue;
      const { right, left, width } = element.getBoundingClientRect();
      if (width > 0 && (right > innerWidth + 0.5 || left < -0.5)) ret.push(`${element.tagName}.${element.className}`);
    }
    return ret;
  });

export { expect };
