import { mkdir } from "node:fs/promises";
import { join } from "node:path";
import { expect, test } from "./fixtures";
import { volumeUri } from "./host";

test("the set's state is shown, changes by itself, and each part has its control", async ({ host, open }) => {
  await mkdir(join(host.files, "holiday"));
  const page = await open("/#set");
  const part = (name: string) => page.getByRole("region", { name, exact: true });

  // What others do is seen without a reload.
  await host.write(volumeUri, 33);
  await expect(part("Volume")).toContainText("33");
  await host.dtvctl("tv", "network", "lose");
  await expect(part("Network").getByRole("button", { name: "Put the cable back" })).toBeVisible();
  await expect(part("Network")).toContainText("Cable pulled");
  await expect(part("Network")).not.toContainText("Connected");

  await part("Volume").getByRole("button", { name: "Louder" }).click();
  await expect(part("Volume")).toContainText("34");
  await part("Volume").getByRole("button", { name: "Mute" }).click();
  await expect(part("Volume").getByRole("button", { name: "Mute", pressed: true })).toBeVisible();
  await expect(part("Volume").locator("s")).toHaveText("34");

  await part("Network").getByRole("button", { name: "Put the cable back" }).click();
  await expect(part("Network").getByRole("button", { name: "Pull the cable" })).toBeVisible();
  await expect(part("Network")).not.toContainText("Cable pulled");

  await part("Source").getByRole("combobox").selectOption({ label: "HDMI 1 · AV Amplifier" });
  await expect.poll(async () => JSON.parse((await host.dtvctl("--json", "tv", "state")).stdout).source).toBe("HDMI 1");

  const sleep = part("Sleep timer").getByRole("combobox");
  const chosen = () => sleep.evaluate((menu: HTMLSelectElement) => menu.selectedOptions[0]?.text);
  expect(await chosen()).toBe("Off");
  await sleep.selectOption({ label: "30 min" });
  await expect.poll(chosen).toBe("30 min");
  // The time that is left is shown, although the menu does not offer it.
  await host.dtvctl("tv", "clock", "sleep", "1000");
  await expect.poll(chosen).toBe("17 min left");
  await sleep.selectOption({ label: "Off" });
  await expect.poll(async () => JSON.parse((await host.dtvctl("--json", "tv", "clock")).stdout).sleep_seconds).toBe(0);

  await part("Clock").getByRole("textbox", { name: "Time zone" }).fill("Nowhere/Land");
  await part("Clock").getByRole("button", { name: "Save" }).click();
  await expect(part("Clock").getByRole("alert")).toContainText("Nowhere/Land");
  await part("Clock").getByRole("textbox", { name: "Time zone" }).fill("Asia/Tokyo");
  await part("Clock").getByRole("button", { name: "Save" }).click();
  await expect(part("Clock").getByRole("alert")).toBeHidden();
  await expect(part("Clock").getByRole("textbox", { name: "Time zone" })).toHaveValue("Asia/Tokyo");

  // A name alone is that of a folder in the root.
  await part("USB sticks").getByRole("combobox").fill("holiday");
  await part("USB sticks").getByRole("button", { name: "Insert" }).click();
  await part("USB sticks").getByRole("button", { name: "Remove: holiday" }).click();
  await expect(part("USB sticks")).toContainText("No USB stick is inserted");

  const player = part("HDMI-CEC").getByRole("listitem").filter({ hasText: "Disc Player" });
  await player.getByRole("button", { name: "Play" }).click();
  await expect(part("Source").getByRole("combobox")).toHaveValue("3");
  await player.getByRole("button", { name: "Unplug" }).click();
  await expect(player.getByRole("button", { name: "Plug in" })).toBeVisible();

  await host.write("/tv/menu/misc/start_native_app", "GUIDE" as unknown as number);
  await expect(part("Applications")).toContainText("GUIDE");
  await part("Applications").getByRole("button", { name: "End it (EXIT)" }).click();
  await expect(part("Applications")).toContainText("None");

  await part("Power").getByRole("button", { name: "Standby" }).click();
  await expect(part("Power").locator("b")).toHaveText("Standby");
  await part("Power").getByRole("button", { name: "Switch on" }).click();
  await expect(part("Power").locator("b")).toHaveText("On");
});

test("the folders that can become a stick are offered, also those in a folder that is typed", async ({ host, open }) => {
  for (const folder of ["holiday/2026", "music", ".hidden"]) await mkdir(join(host.files, folder), { recursive: true });
  const page = await open("/#set");
  const sticks = page.getByRole("region", { name: "USB sticks", exact: true });
  const field = sticks.getByRole("combobox", { name: "Folder to insert as a USB stick" });
  const offered = () =>
    field.evaluate((input: HTMLInputElement) => [...input.list!.options].map(({ value }) => value));
  await expect(sticks).toContainText(`Folders in ${host.files} can be inserted.`);
  await expect.poll(offered).toEqual([join(host.files, "holiday"), join(host.files, "music")]);
  await field.fill(join(host.files, "holiday/"));
  await expect.poll(offered).toEqual([join(host.files, "holiday/2026")]);
  await field.fill(join(host.files, "holiday/2026"));
  await sticks.getByRole("button", { name: "Insert" }).click();
  await expect(sticks.getByRole("button", { name: "Remove: 2026" })).toBeVisible();
  await page.goto(`${host.origin}/#media`);
  await expect(page.getByRole("button", { name: "2026" }).first()).toBeVisible();
});

test("a set without a channel leads to the channel search", async ({ open }) => {
  const page = await open("/#set");
  const channel = page.getByRole("region", { name: "Channel", exact: true });
  await expect(channel).toContainText("None");
  await channel.getByRole("button", { name: "Channel search" }).click();
  await expect(page).toHaveURL(/#scan$/);
});

test("without the token the panel says what it needs", async ({ open }) => {
  const page = await open("/#set", { token: null });
  await expect(page.getByRole("alert")).toContainText("needs the token");
  await expect(page.getByRole("region", { name: "Power" })).toBeHidden();
});
