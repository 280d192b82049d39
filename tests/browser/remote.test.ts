import type { Locator, Page } from "@playwright/test";
import { changeList, expect, muteButton, readList, slider, test } from "./fixtures";
import { muteUri, volumeUri, type Host } from "./host";

const panel = (page: Page): Locator => page.getByRole("main", { name: "Remote control" });
const key = (page: Page, name: string): Locator => panel(page).getByRole("button", { name, exact: true });

/** The key names that the plugin reports. */
async function keyNames(host: Host): Promise<string[]> {
  const { uris } = await readList(host);
  return (uris.find(({ uri }) => uri === "/tv/key/irrc")?.values ?? []).map(({ value }) => value);
}

test("all keys of the plugin's table are shown, each in a group", async ({ host, open }) => {
  const names = await keyNames(host);
  expect(names).toHaveLength(58);
  const page = await open();
  await page.getByRole("button", { name: "Remote control" }).click();
  await expect(page).toHaveURL(/#remote$/);
  const buttons = panel(page).getByRole("button");
  await expect(buttons).toHaveCount(58);
  const shown = await Promise.all((await buttons.all()).map((button) => button.getAttribute("aria-label")));
  expect(shown.sort()).toEqual(names.sort());
  await expect(panel(page).getByRole("region", { name: "Menu" }).getByRole("button", { name: "ENTER" })).toBeVisible();
  await expect(panel(page).getByRole("region", { name: "More" })).toHaveCount(0);
});

test("a key that the page does not know is shown, and a failed press shows the reason", async ({ host, open }) => {
  const page = await open();
  await changeList(page, ({ uris }) => uris.forEach(({ values }) => values?.push({ value: "NEW-KEY" })));
  await page.goto(`${host.origin}/#remote`);
  await page.reload();
  await expect(panel(page).getByRole("button")).toHaveCount(59);
  const fresh = panel(page).getByRole("region", { name: "More" }).getByRole("button", { name: "NEW-KEY" });
  await fresh.click();
  await expect(panel(page).getByRole("status")).toContainText('VALUE is "NEW-KEY", which is not among its values');
  await expect(fresh).toHaveAttribute("data-failed", "true");
});

test("on a phone, what a key far below did is in view", async ({ open }) => {
  const page = await open("/#remote");
  await page.setViewportSize({ width: 390, height: 740 });
  await key(page, "ANGLE").click();
  const status = panel(page).getByRole("status");
  await expect(status).toHaveText("Not available: ANGLE");
  await expect(status).toBeInViewport({ ratio: 1 });
  await expect(key(page, "ANGLE")).toBeInViewport();
});

test("keys change the set as a remote control does", async ({ host, open }) => {
  await host.write(volumeUri, 40);
  await host.write(muteUri, 0);
  const page = await open("/#remote");
  const other = await open();
  await expect(slider(page)).toHaveValue("40");

  await key(page, "VOL+").click();
  await expect(slider(page)).toHaveValue("41");
  await expect(slider(other)).toHaveValue("41");
  expect(await host.read(volumeUri)).toBe(41);
  await expect(panel(page).getByRole("status")).toHaveText("VOL+ was pressed.");
  await key(page, "VOL-").click();
  await key(page, "VOL-").click();
  await expect(slider(page)).toHaveValue("39");

  await key(page, "MUTE").click();
  await expect(muteButton(other)).toHaveAttribute("aria-pressed", "true");
  await key(page, "MUTE").click();
  await expect(muteButton(other)).toHaveAttribute("aria-pressed", "false");
});

test("a key that does nothing now says so", async ({ open }) => {
  const page = await open("/#remote");
  await key(page, "FF").click();
  await expect(panel(page).getByRole("status")).toHaveText("Not available: FF");
  await key(page, "POWER").click();
  await expect(panel(page).getByRole("status")).toHaveText("POWER was pressed.");
  await key(page, "VOL+").click();
  await expect(panel(page).getByRole("status")).toHaveText("Standby: No effect now: VOL+");
});

test("of two keys pressed quickly only the last one is lit, for a moment", async ({ host, open }) => {
  const page = await open();
  // With a controlled clock, the second press always comes while the first key is lit.
  await page.clock.install();
  await page.goto(`${host.origin}/#remote`);
  await page.reload();
  await expect(key(page, "VOL+")).toBeEnabled();
  await page.clock.pauseAt(Date.now() + 60_000);
  const lit = panel(page).locator('[data-lit="true"]');
  for (const name of ["VOL+", "VOL-"]) {
    await key(page, name).click();
    await expect(panel(page).getByRole("status")).toHaveText(`${name} was pressed.`);
    await page.clock.runFor(100);
    await expect(lit).toHaveText([name]);
  }
  await page.clock.runFor(1000);
  await expect(lit).toHaveCount(0);
});

test("the remote control works by keyboard", async ({ host, open }) => {
  await host.write(volumeUri, 40);
  const page = await open("/#remote");
  const sent: string[] = [];
  page.on("websocket", (socket) => {
    socket.on("framesent", ({ payload }) => {
      const { method, params } = JSON.parse(String(payload));
      if (method === "set" && params.uri === "/tv/key/irrc") sent.push(params.parameter.VALUE);
    });
  });
  await page.reload();
  await key(page, "VOL+").focus();
  await page.keyboard.press("Enter");
  await expect(slider(page)).toHaveValue("41");
  await page.keyboard.press("Space");
  await expect(slider(page)).toHaveValue("42");
  await page.keyboard.press("+");
  await expect(slider(page)).toHaveValue("43");
  await page.keyboard.press("-");
  await expect(slider(page)).toHaveValue("42");
  await page.keyboard.press("Tab");
  await expect(key(page, "CH+")).toBeFocused();
  for (const typed of ["7", "ArrowLeft", "PageDown", "Escape"]) await page.keyboard.press(typed);
  await expect.poll(() => sent).toEqual(["VOL+", "VOL+", "VOL+", "VOL-", "7", "LEFT", "CH-", "EXIT"]);

  // Outside the panel the same keys of the keyboard press no key of the remote control.
  await page.getByRole("button", { name: "Configuration" }).focus();
  await page.keyboard.press("5");
  await key(page, "GUIDE").click();
  await expect.poll(() => sent.at(-1)).toBe("GUIDE");
  expect(sent).toHaveLength(9);
});
