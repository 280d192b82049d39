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

  await part("Volume").getByRole("button", { name: "Louder" }).click();
  await expect(part("Volume")).toContainText("34");
  await part("Volume").getByRole("button", { name: "Mute" }).click();
  await expect(part("Volume").getByRole("button", { name: "Mute", pressed: true })).toBeVisible();

  await part("Network").getByRole("button", { name: "Put the cable back" }).click();
  await expect(part("Network").getByRole("button", { name: "Pull the cable" })).toBeVisible();

  await part("Source").getByRole("combobox").selectOption({ label: "HDMI 1 · AV Amplifier" });
  await expect.poll(async () => JSON.parse((await host.dtvctl("--json", "tv", "state")).stdout).source).toBe("HDMI 1");

  await part("Sleep timer").getByRole("combobox").selectOption({ label: "30 min" });
  await expect(part("Sleep timer").locator("b")).toHaveText("30 min");

  await part("Clock").getByRole("textbox", { name: "Time zone" }).fill("Nowhere/Land");
  await part("Clock").getByRole("button", { name: "Save" }).click();
  await expect(part("Clock").getByRole("alert")).toContainText("Nowhere/Land");
  await part("Clock").getByRole("textbox", { name: "Time zone" }).fill("Asia/Tokyo");
  await part("Clock").getByRole("button", { name: "Save" }).click();
  await expect(part("Clock").getByRole("alert")).toBeHidden();
  await expect(part("Clock").getByRole("textbox", { name: "Time zone" })).toHaveValue("Asia/Tokyo");

  await part("USB sticks").getByRole("textbox").fill(join(host.files, "holiday"));
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

test("without the token the panel says what it needs", async ({ open }) => {
  const page = await open("/#set", { token: null });
  await expect(page.getByRole("alert")).toContainText("needs the token");
  await expect(page.getByRole("region", { name: "Power" })).toBeHidden();
});
