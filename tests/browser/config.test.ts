import type { Locator, Page } from "@playwright/test";
import { expect, languageMenu, logRows, question, test } from "./fixtures";
import { configNotifyUri, type Host } from "./host";

const lines = (page: Page): Locator => page.locator(".config-line");
const line = (page: Page, key: string): Locator => page.locator(`.config-line[data-key="${key}"]`);
const search = (page: Page): Locator => page.getByRole("searchbox", { name: "Search" });

/** The television's own description of a key. */
async function described(host: Host, key: string): Promise<Record<string, unknown>> {
  const { code, stdout, stderr } = await host.dtvctl("--json", "tv", "config", key);
  expect(code, stderr).toBe(0);
  return JSON.parse(stdout) as Record<string, unknown>;
}

async function change(host: Host, key: string, value: string) {
  const { code, stderr } = await host.dtvctl("tv", "config", key, value);
  expect(code, stderr).toBe(0);
}

test("the configuration is listed and searched by key and by help", async ({ host, open }) => {
  const page = await open();
  await page.getByRole("button", { name: "Configuration" }).click();
  await expect(page).toHaveURL(/#configuration$/);
  const { stdout } = await host.dtvctl("--json", "tv", "config");
  const keys = Object.keys(JSON.parse(stdout) as object);
  expect(keys.length).toBeGreaterThan(100);
  await expect(lines(page)).toHaveCount(keys.length);
  await expect(page.getByText(`${keys.length} values`, { exact: true })).toBeVisible();

  const balance = line(page, "g_audio__balance");
  await expect(balance).toContainText("Balance; negative is left");
  await expect(balance).toContainText("number −50 to 50");
  await expect(balance.getByRole("spinbutton", { name: "g_audio__balance" })).toHaveValue("0");
  await expect(line(page, "g_misc__tv_network_name")).toContainText("text at most 64 bytes");
  await expect(line(page, "g_gui_lang__gui_language")).toContainText("code three letters");
  // The values are in groups, whose headings are the first parts of their keys in words.
  const sound = page.getByRole("region", { name: "Sound", exact: true });
  await expect(sound.getByRole("heading")).toHaveText("Sound");
  await expect(sound.locator(".config-line")).toHaveCount(keys.filter((key) => key.startsWith("g_audio__")).length);

  await page.keyboard.press("/");
  await expect(search(page)).toBeFocused();
  await page.keyboard.type("LEFT negative");
  await expect(lines(page)).toHaveCount(1);
  await expect(balance).toBeVisible();
  await expect(balance.locator("mark")).toHaveText(["negative", "left"]);
  await search(page).fill("g_video__ bright");
  await expect(lines(page)).toHaveCount(1);
  await expect(lines(page)).toHaveAttribute("data-key", "g_video__brightness");
  // Names of values are found too.
  await search(page).fill("side by side");
  await expect(lines(page)).toHaveCount(1);
  await expect(lines(page)).toHaveAttribute("data-key", "g_video__three_d_mode");
  await search(page).fill("balance nosuchword");
  await expect(lines(page)).toHaveCount(0);
  await expect(page.getByText("Nothing found")).toBeVisible();
  await page.keyboard.press("Escape");
  await expect(lines(page)).toHaveCount(keys.length);

  await page.goBack();
  await expect(page.getByRole("heading", { name: "Talk to the television" })).toBeVisible();
});

test("every kind of value can be edited, through the plugin", async ({ host, open }) => {
  const page = await open();
  const sent: { uri: string; parameter: unknown }[] = [];
  const commands: string[][] = [];
  page.on("websocket", (socket) => {
    socket.on("framesent", ({ payload }) => {
      const { method, params } = JSON.parse(String(payload));
      if (method === "set") sent.push({ uri: params.uri, parameter: params.parameter });
      if (method === "tv") commands.push(params.words);
    });
  });
  await page.goto(`${host.origin}/#configuration`);
  await page.reload();

  const bass = line(page, "g_audio__bass");
  const number = bass.getByRole("spinbutton");
  await expect(number).toHaveAttribute("min", "0");
  await expect(number).toHaveAttribute("max", "100");
  await number.fill("61");
  await number.press("Enter");
  await expect.poll(async () => (await described(host, "g_audio__bass"))["value"]).toBe(61);
  await expect(bass).toContainText("Default 50");

  const surround = line(page, "g_audio__surround").getByRole("switch", { name: "g_audio__surround" });
  await expect(surround).not.toBeChecked();
  await surround.check();
  await expect.poll(async () => (await described(host, "g_audio__surround"))["value"]).toBe(true);
  await expect(surround).toBeChecked();

  const country = line(page, "g_country__country").getByRole("textbox");
  await country.fill("FRA");
  await country.press("Enter");
  await expect(country).toHaveValue("fra");
  expect((await described(host, "g_country__country"))["value"]).toBe("fra");

  const name = line(page, "g_misc__tv_network_name").getByRole("textbox");
  await name.fill("Küche");
  await name.blur();
  await expect.poll(async () => (await described(host, "g_misc__tv_network_name"))["value"]).toBe("Küche");

  // A number without an item id is addressed by its key.
  const source = line(page, "g_misc__last_source").getByRole("spinbutton");
  await source.fill("3");
  await source.press("Enter");
  await expect.poll(async () => (await described(host, "g_misc__last_source"))["value"]).toBe(3);

  const reset = line(page, "g_action__reset_sound");
  await reset.getByRole("button").click();
  await question(page).getByRole("button", { name: "Send" }).click();
  await expect(reset).toContainText("1×");
  await expect(number).toHaveValue("50");
  await expect(surround).not.toBeChecked();

  expect(sent).toEqual([
    { uri: "/tv/config/value_number", parameter: { REQUEST: "SET", cfgId: "g_audio__bass", valueInt: 61 } },
    { uri: "/tv/config/value_bool", parameter: { REQUEST: "SET", cfgItem: 0x07030014, valueInt: 1 } },
    { uri: "/tv/config/value_number", parameter: { REQUEST: "SET", cfgId: "g_country__country", valueInt: 0x66726100 } },
    {
      uri: "/tv/config/value_string",
      parameter: { REQUEST: "SET", cfgId: "g_misc__tv_network_name", valueString: "Küche" },
    },
    { uri: "/tv/config/value_number", parameter: { REQUEST: "SET", cfgId: "g_misc__last_source", valueInt: 3 } },
    { uri: "/tv/config/value_action", parameter: { REQUEST: "SET", cfgItem: 0x07010004 } },
  ]);
  expect(commands.length).toBeGreaterThan(100);
  for (const words of commands) expect(words.length, words.join(" ")).toBeLessThanOrEqual(2);
});

test("a number whose values have names is chosen by its name", async ({ host, open }) => {
  const page = await open("/#configuration");
  const mode = line(page, "g_video__picture_mode");
  const menu = mode.getByRole("combobox", { name: "g_video__picture_mode" });
  await expect(menu.locator("option")).toHaveText(["standard", "vivid", "film", "sport", "game", "custom"]);
  await menu.selectOption("film");
  await expect.poll(async () => (await described(host, "g_video__picture_mode"))["value"]).toBe(2);
  await expect(mode).toContainText("Default standard");
  await change(host, "g_video__picture_mode", "game");
  await expect(menu).toHaveValue("4");

  // What the set refuses is not shown as chosen.
  const fault = await host.dtvctl("tv", "fault", "a_vextvapi_config_set_value", "--fail");
  expect(fault.code, fault.stderr).toBe(0);
  await menu.selectOption("vivid");
  await expect(mode.getByRole("alert")).toBeVisible();
  await expect(menu).toHaveValue("4");

  // A number without names has its limits.
  await expect(line(page, "g_video__sharpness")).toContainText("number 0 to 20");
  await expect(line(page, "g_video__sharpness").getByRole("spinbutton")).toBeVisible();
});

test("an action that resets values asks first, with the safe answer focused", async ({ host, open }) => {
  await change(host, "g_audio__bass", "61");
  const page = await open("/#configuration");
  const bass = async () => (await described(host, "g_audio__bass"))["value"];
  const send = line(page, "g_action__reset_all").getByRole("button");
  const cancel = question(page).getByRole("button", { name: "Cancel" });

  await send.click();
  await expect(question(page)).toHaveAccessibleName("Send g_action__reset_all?");
  await expect(question(page)).toHaveAccessibleDescription(/^Resets every value to its default\. This cannot be undone\.$/);
  await expect(cancel).toBeFocused();
  // The rest of the page cannot be reached meanwhile.
  for (let press = 0; press < 4; press++) {
    await page.keyboard.press("Tab");
    expect(await page.evaluate(() => document.activeElement?.closest(".config-line"))).toBeNull();
  }
  await page.keyboard.press("Escape");
  await expect(question(page)).toHaveCount(0);
  await expect(send).toBeFocused();
  expect(await bass()).toBe(61);

  await send.click();
  await page.keyboard.press("Enter");
  await expect(question(page)).toHaveCount(0);
  expect(await bass()).toBe(61);

  // The German texts are read after the choice. A question keeps the language in which it was asked.
  await languageMenu(page).selectOption("deu");
  await expect(send).toHaveText("Senden");
  await send.click();
  await question(page).getByRole("button", { name: "Senden" }).click();
  await expect(question(page)).toHaveCount(0);
  await expect.poll(bass).toBe(50);

  // One that changes nothing does not ask.
  await line(page, "g_action__search_update").getByRole("button").click();
  await expect(line(page, "g_action__search_update")).toContainText("1×");
  await expect(question(page)).toHaveCount(0);
});

test("a search finds the headings of groups, in the language of the menus", async ({ open }) => {
  const page = await open("/#configuration");
  await search(page).fill("picture");
  await expect(line(page, "g_video__brightness")).toBeVisible();
  await search(page).fill("Bild");
  await expect(line(page, "g_video__brightness")).toHaveCount(0);
  await languageMenu(page).selectOption("deu");
  await expect(line(page, "g_video__brightness")).toBeVisible();
  await expect(line(page, "g_audio__bass")).toHaveCount(0);
});

test("a refused value is shown with the reason, and Escape discards it", async ({ host, open }) => {
  const page = await open("/#configuration");
  const balance = line(page, "g_audio__balance");
  const field = balance.getByRole("spinbutton");
  await field.fill("77");
  await field.press("Enter");
  await expect(balance.getByRole("alert")).toContainText("Not accepted: g_audio__balance takes a number from -50 to 50, not 77");
  await expect(field).toHaveAttribute("aria-invalid", "true");
  await expect(field).toHaveValue("77");
  expect((await described(host, "g_audio__balance"))["value"]).toBe(0);

  await field.press("Escape");
  await expect(field).toHaveValue("0");
  await expect(balance.getByRole("alert")).toHaveCount(0);

  const country = line(page, "g_country__country");
  await country.getByRole("textbox").fill("f1");
  await country.getByRole("textbox").press("Enter");
  await expect(country.getByRole("alert")).toHaveText("Three letters are needed.");

  const name = line(page, "g_misc__tv_network_name");
  await name.getByRole("textbox").fill("x".repeat(65));
  await name.getByRole("textbox").press("Enter");
  await expect(name.getByRole("alert")).toContainText("takes a text of at most 64 bytes in UTF-8, not these 65");

  const fault = await host.dtvctl("tv", "fault", "setConfigValueBool", "--fail");
  expect(fault.code, fault.stderr).toBe(0);
  const surround = line(page, "g_audio__surround");
  await surround.getByRole("switch").click();
  await expect(surround.getByRole("alert")).toContainText("Not accepted: a fault is set on the platform's");
  await expect(surround.getByRole("switch")).not.toBeChecked();
});

test("a change made elsewhere appears and is marked for a moment", async ({ host, open }) => {
  const page = await open("/#configuration");
  const bass = line(page, "g_audio__bass");
  await expect(bass.getByRole("spinbutton")).toHaveValue("50");
  await expect(bass).toHaveAttribute("data-changed", "false");

  // This change raises no notification; the page sees it when it reads the values again.
  const marked = () => expect(bass).toHaveAttribute("data-changed", "true");
  await Promise.all([marked(), change(host, "g_audio__bass", "73")]);
  await expect(bass.getByRole("spinbutton")).toHaveValue("73");
  await expect(bass).toHaveAttribute("data-changed", "false");
  await expect(page.locator('.config-line[data-changed="true"]')).toHaveCount(0);

  // A change does not replace the text that is being typed.
  await bass.getByRole("spinbutton").fill("7");
  await Promise.all([marked(), change(host, "g_audio__bass", "20")]);
  await expect(bass.getByRole("spinbutton")).toHaveValue("7");
  await bass.getByRole("spinbutton").press("Escape");
  await expect(bass.getByRole("spinbutton")).toHaveValue("20");

  await page.getByRole("checkbox", { name: "Not the default" }).check();
  await expect(lines(page)).toHaveCount(1);
  await expect(bass).toContainText("Default 50");
});

test("a change with a notification is read immediately", async ({ host, open }) => {
  const page = await open();
  // The clock of the page stands still, so the page does not poll, and only the notification can report the change.
  await page.clock.install();
  await page.goto(`${host.origin}/#configuration`);
  const name = line(page, "g_misc__tv_network_name");
  await expect(name.getByRole("textbox")).toHaveValue("Living room");
  await page.clock.pauseAt(Date.now() + 60_000);
  await change(host, "g_misc__tv_network_name", "Kitchen");
  await expect(name.getByRole("textbox")).toHaveValue("Kitchen");
  await page.clock.resume();
  await expect(logRows(page, "Notifications").first()).toContainText('ARG2 "g_misc__tv_network_name"');
  await expect(logRows(page, "Notifications").first()).toContainText(configNotifyUri.split("/").at(-1)!);
});

test("on a set that does not list its keys, the viewer adds them", async ({ host, open }) => {
  const page = await open();
  // The answer of a host whose platform is not the virtual television.
  await page.routeWebSocket("**/jsonrpc", (socket) => {
    const server = socket.connectToServer();
    socket.onMessage((text) => {
      const { id, method } = JSON.parse(String(text));
      if (method !== "tv") server.send(text);
      else socket.send(JSON.stringify({ jsonrpc: "2.0", id, error: { code: -32000, message: "no virtual television" } }));
    });
  });
  await page.goto(`${host.origin}/#configuration`);
  await page.reload();
  const form = page.getByRole("form", { name: "Add" });
  await form.getByRole("textbox", { name: "Key" }).fill("g_audio__balance");
  await form.getByRole("button", { name: "Add" }).click();
  const balance = line(page, "g_audio__balance");
  await expect(balance).toContainText("number −50 to 50");
  await form.getByRole("textbox", { name: "Key" }).fill("g_misc__tv_network_name");
  await page.keyboard.press("Enter");
  const name = line(page, "g_misc__tv_network_name");
  await expect(name.getByRole("textbox")).toHaveValue("Living room");
  await form.getByRole("textbox", { name: "Key" }).fill("g_no__such");
  await page.keyboard.press("Enter");
  await expect(form).toContainText("The television has no g_no__such.");

  await balance.getByRole("spinbutton").fill("-7");
  await balance.getByRole("spinbutton").press("Enter");
  await expect.poll(async () => (await described(host, "g_audio__balance"))["value"]).toBe(-7);
  await change(host, "g_audio__balance", "9");
  await expect(balance.getByRole("spinbutton")).toHaveValue("9");
  await expect(lines(page)).toHaveCount(2);
});
