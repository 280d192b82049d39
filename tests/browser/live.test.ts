import { expect, logRows, slider, test } from "./fixtures";
import { muteUri, volumeNotifyUri, volumeUri } from "./host";

test("the log shows notifications newest first, pauses and clears", async ({ host, open }) => {
  await host.write(volumeUri, 10);
  await host.write(muteUri, 0);
  const page = await open();
  const rows = logRows(page, "Notifications");
  const live = page.getByRole("region", { name: "Live" });
  await expect(rows).toHaveCount(0);

  await host.write(volumeUri, 11);
  await expect(rows).toHaveCount(1);
  await host.write(volumeUri, 12);
  await expect(rows).toHaveCount(2);
  await expect(rows.first()).toContainText("volValue 12");
  await expect(rows.first()).toContainText("muteStatus 0");
  await expect(rows.first()).toContainText("#2");
  await expect(rows.first()).toContainText(/\d\d:\d\d:\d\d\.\d{3}/);
  await expect(rows.nth(1)).toContainText("volValue 11");
  await expect(live).toContainText("2 received");

  await live.getByRole("button", { name: "Pause" }).click();
  await host.write(volumeUri, 13);
  await expect(live).toContainText("Paused · 1 waiting");
  await expect(rows).toHaveCount(2);
  await live.getByRole("button", { name: "Pause" }).click();
  await expect(rows).toHaveCount(3);
  await expect(rows.first()).toContainText("volValue 13");

  await rows.first().locator("summary").click();
  await expect(rows.first()).toContainText(
    '{"URI":"/tv/ws/notify/volume_ctrl","REQUEST":"NOTIFY","ITEMS":[{"volValue":13,"muteStatus":0}]}',
  );

  await live.getByRole("button", { name: "Clear" }).click();
  await expect(rows).toHaveCount(0);
  await expect(live).toContainText("0 received");
});

test("one click ends a subscription and one starts it", async ({ host, open }) => {
  await host.write(volumeUri, 10);
  const page = await open();
  const rows = logRows(page, "Notifications");
  const bell = page.getByRole("button", { name: `Subscribe: ${volumeNotifyUri}` });
  const findBell = () => page.getByRole("searchbox").fill(volumeNotifyUri);
  await findBell();
  await expect(bell).toHaveAttribute("aria-pressed", "true");

  await bell.click();
  await expect(bell).toHaveAttribute("aria-pressed", "false");
  await host.write(volumeUri, 20);
  // The volume control has its own subscription.
  await expect(slider(page)).toHaveValue("20");
  await expect(rows).toHaveCount(0);

  await bell.click();
  await host.write(volumeUri, 21);
  await expect(rows).toHaveCount(1);

  // The choice is kept.
  await bell.click();
  await page.reload();
  await findBell();
  await expect(bell).toHaveAttribute("aria-pressed", "false");
});

test("the log reports that the queue overflowed", async ({ open }) => {
  const page = await open();
  // Sends the host's message among the real ones.
  await page.routeWebSocket("**/jsonrpc", (socket) => {
    socket.connectToServer();
    socket.send(JSON.stringify({ jsonrpc: "2.0", method: "overflow", params: { dropped: 7 } }));
  });
  await page.reload();
  await expect(logRows(page, "Notifications")).toContainText(["7 messages were lost: the queue overflowed."]);
});

test("the live trace shows the calls that other clients cause", async ({ host, open }) => {
  const page = await open();
  const live = page.getByRole("region", { name: "Live" });
  const rows = logRows(page, "Calls");
  await live.getByRole("button", { name: "Calls" }).click();
  await host.write(volumeUri, 44);
  await expect(rows).toHaveCount(0);

  await page.getByRole("switch", { name: "Trace every platform call" }).check();
  await expect(async () => {
    await host.write(volumeUri, 45);
    await host.write(volumeUri, 46);
    await expect(rows.filter({ hasText: "a_vextvapi_volctrl_setVolume(volume: 46) → 0" }).first()).toBeVisible({
      timeout: 500,
    });
  }).toPass();
  // The television reports the change by a callback.
  await expect(rows.filter({ hasText: "a_vextvapi_volctrl_reg_callback(" }).first()).toContainText("pv_arg1: 46");

  await page.getByRole("switch", { name: "Trace every platform call" }).uncheck();
  // The host learns of it a moment later; then a change adds no row.
  let volume = 47;
  await expect(async () => {
    const before = await rows.count();
    await host.write(volumeUri, ++volume);
    await expect(slider(page)).toHaveValue(String(volume));
    expect(await rows.count()).toBe(before);
  }).toPass();
});
