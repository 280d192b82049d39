import { expect, muteButton, slider, test } from "./fixtures";
import { muteUri, volumeNotifyUri, volumeUri } from "./host";

test("a volume set on one page reaches another page, dtvctl watch and an HTTP client", async ({ host, open }) => {
  await host.write(muteUri, 0);
  const watch = host.printing("watch", volumeNotifyUri);
  // Once something has been printed, the subscription is active.
  await expect(async () => {
    await host.dtvctl("tv", "volume", "up");
    expect(watch.lines.length).toBeGreaterThan(0);
  }).toPass();

  const one = await open();
  const other = await open();
  await slider(one).fill("23");

  await expect(slider(other)).toHaveValue("23");
  await expect(slider(one)).toHaveValue("23");
  expect(await host.read(volumeUri)).toBe(23);
  await expect
    .poll(() => watch.lines.at(-1))
    .toBe('{"URI":"/tv/ws/notify/volume_ctrl","REQUEST":"NOTIFY","ITEMS":[{"volValue":23,"muteStatus":0}]}');
});

test("the remote control of the television moves the slider", async ({ host, open }) => {
  await host.write(volumeUri, 40);
  const page = await open();
  await expect(slider(page)).toHaveValue("40");

  const up = await host.dtvctl("tv", "volume", "up");
  expect(up.code, up.stderr).toBe(0);
  await expect(slider(page)).toHaveValue("41");
  expect(await host.read(volumeUri)).toBe(41);

});

test("mute on one page reaches another page, and mute at the television reaches both", async ({ host, open }) => {
  await host.write(muteUri, 0);
  const one = await open();
  const other = await open();
  await expect(muteButton(one)).toHaveAttribute("aria-pressed", "false");

  await muteButton(one).click();
  await expect(muteButton(one)).toHaveAttribute("aria-pressed", "true");
  await expect(muteButton(other)).toHaveAttribute("aria-pressed", "true");
  expect(await host.read(muteUri)).toBe(1);

  expect((await host.dtvctl("tv", "mute", "toggle")).code).toBe(0);
  await expect(muteButton(one)).toHaveAttribute("aria-pressed", "false");
  expect(await host.read(muteUri)).toBe(0);
});

test("the slider works by keyboard", async ({ host, open }) => {
  await host.write(volumeUri, 50);
  const page = await open();
  await slider(page).focus();
  await page.keyboard.press("ArrowRight");
  await page.keyboard.press("ArrowRight");
  await expect.poll(() => host.read(volumeUri)).toBe(52);
  await page.keyboard.press("End");
  await expect.poll(() => host.read(volumeUri)).toBe(100);
  await expect(slider(page)).toHaveValue("100");
});

test("a drag keeps one set in flight, the last position wins, and no notification moves the slider", async ({ host, open }) => {
  await host.write(volumeUri, 10);
  // Makes a set slow enough that the slider passes many positions while one is in flight.
  const slow = await host.dtvctl("tv", "fault", "a_vextvapi_volctrl_setVolume", "--delay", "120");
  expect(slow.code, slow.stderr).toBe(0);
  const page = await open();

  const sent: number[] = [];
  const inFlight = new Set<number>();
  let most = 0;
  page.on("websocket", (socket) => {
    socket.on("framesent", ({ payload }) => {
      const { id, method, params } = JSON.parse(String(payload));
      if (method !== "set") return;
      sent.push(params.parameter.VALUE);
      inFlight.add(id);
      most = Math.max(most, inFlight.size);
    });
    socket.on("framereceived", ({ payload }) => {
      inFlight.delete(JSON.parse(String(payload)).id);
    });
  });
  await page.reload();
  await expect(slider(page)).toHaveValue("10");

  const box = (await slider(page).boundingBox())!;
  const y = box.y + box.height / 2;
  await page.mouse.move(box.x + box.width * 0.1, y);
  await page.mouse.down();
  await page.mouse.move(box.x + box.width * 0.8, y, { steps: 12 });
  const held = await slider(page).inputValue();
  expect(Number(held)).toBeGreaterThan(60);
  // The notifications of all sets arrive while the slider is held.
  for (let look = 0; look < 25; look++) {
    expect(await slider(page).inputValue()).toBe(held);
    await page.waitForTimeout(20);
  }
  await page.mouse.up();
  for (let look = 0; look < 40; look++) {
    expect(await slider(page).inputValue()).toBe(held);
    await page.waitForTimeout(20);
  }

  expect(most).toBe(1);
  expect(sent.length).toBeGreaterThan(1);
  expect(sent.at(-1)).toBe(Number(held));
  expect(await host.read(volumeUri)).toBe(Number(held));

  // After its release the slider follows the television again.
  await host.dtvctl("tv", "volume", "5");
  await expect(slider(page)).toHaveValue("5");

  // Of the positions that the slider passes while a set is in flight, only the last is sent.
  sent.length = 0;
  await slider(page).evaluate((input: HTMLInputElement) => {
    for (let position = 30; position <= 60; position++) {
      input.valueAsNumber = position;
      input.dispatchEvent(new Event("input", { bubbles: true }));
    }
  });
  await expect.poll(() => host.read(volumeUri)).toBe(60);
  expect(sent).toEqual([30, 60]);
  expect(most).toBe(1);
});

test("a refused set moves the slider back and shows a message", async ({ host, open }) => {
  await host.write(volumeUri, 30);
  const page = await open();
  await expect(slider(page)).toHaveValue("30");
  const fault = await host.dtvctl("tv", "fault", "a_vextvapi_volctrl_setVolume", "--fail");
  expect(fault.code, fault.stderr).toBe(0);

  await slider(page).fill("80");
  await expect(slider(page)).toHaveValue("30");
  await expect(page.locator(".notice")).toContainText("/tv/cast/volume/volume was refused: a fault is set on the platform's a_vextvapi_volctrl_setVolume");
  expect(await host.read(volumeUri)).toBe(30);
});
