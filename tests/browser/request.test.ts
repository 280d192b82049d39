import { execFile } from "node:child_process";
import { promisify } from "node:util";
import type { Page } from "@playwright/test";
import { expect, slider, test } from "./fixtures";
import { muteUri, volumeNotifyUri, volumeUri } from "./host";

const run = promisify(execFile);
const response = (page: Page) => page.getByRole("region", { name: "Response" });
const member = (page: Page, name: string) => response(page).getByRole("row").filter({ has: page.getByRole("rowheader", { name, exact: true }) });
const sample = (page: Page) => page.getByLabel("The request that will be sent");
const choose = (page: Page, name: string) => page.getByRole("group", { name: "Kind of request" }).getByRole("button", { name }).click();

async function copied(page: Page): Promise<string> {
  await page.getByRole("button", { name: "Copy the request" }).click();
  return page.evaluate(() => navigator.clipboard.readText());
}

test("a get shows the item's members, the raw text and the platform call", async ({ host, open }) => {
  await host.write(volumeUri, 64);
  const page = await open(`/#${volumeUri}`);
  await page.getByRole("button", { name: "Get", exact: true }).last().click();

  await expect(response(page)).toContainText("ret 0");
  await expect(response(page)).toContainText("done");
  await expect(member(page, "NAME")).toContainText("Volume");
  await expect(member(page, "TYPE")).toContainText("TYPE_VALUE");
  await expect(member(page, "INCREMENT").locator(".value")).toHaveText("1");
  await expect(member(page, "VALUE").locator(".value")).toHaveText("64");

  const raw = page.getByLabel("Raw response");
  await expect(raw).toBeHidden();
  await page.getByText("Raw JSON").click();
  await expect(raw).toBeVisible();
  expect(JSON.parse(await raw.innerText())).toEqual({
    URI: volumeUri,
    STATUS: 0,
    ITEMS: [
      { NAME: "Volume", TYPE: "TYPE_VALUE", GROUP: 4, STATE: 1, MINIMUM: 0, MAXIMUM: 0, INCREMENT: 1, VALUE: 64 },
    ],
  });

  const calls = page.getByRole("list", { name: "Platform calls of this request" }).getByRole("listitem");
  await expect(calls).toHaveCount(1);
  await expect(calls).toContainText("a_vextvapi_volctrl_getVolume() → 64");
});

test("a set is made from the item type's description, and shows the platform call", async ({ host, open }) => {
  await host.write(volumeUri, 5);
  const page = await open(`/#${volumeUri}`);
  await choose(page, "Set");
  await page.getByRole("textbox", { name: "VALUE" }).fill("37");
  expect(JSON.parse(await sample(page).innerText())).toEqual({
    jsonrpc: "2.0",
    id: 1,
    method: "set",
    params: { uri: volumeUri, parameter: { REQUEST: "MODIFY", VALUE: 37 } },
  });
  await page.getByRole("form").getByRole("button", { name: "Set", exact: true }).click();

  await expect(response(page)).toContainText("ret 0");
  const calls = page.getByRole("list", { name: "Platform calls of this request" }).getByRole("listitem");
  await expect(calls).toContainText(["a_vextvapi_volctrl_setVolume(volume: 37) → 0"]);
  await expect(slider(page)).toHaveValue("37");
  expect(await host.read(volumeUri)).toBe(37);
});

test("a field whose value is one of a table's names offers the names", async ({ open }) => {
  const page = await open("/#/tv/key/irrc");
  const field = page.getByRole("combobox", { name: "VALUE" });
  await expect(field).toBeVisible();
  const offered = await field.evaluate((input: HTMLInputElement) => [...input.list!.options].map(({ value }) => value));
  expect(offered).toHaveLength(58);
  expect(offered).toContain("VOL+");
});

test("a player's form has the members of the operator that was typed, and no others", async ({ open }) => {
  const uri = "/tv/cbrowser/playback_operator";
  const page = await open(`/#${uri}`);
  const labels = () => page.getByRole("form").locator(".field label").allInnerTexts();
  await expect(page.getByRole("combobox", { name: "operator" })).toBeVisible();
  expect(await labels()).toEqual(["handle", "operator", "bMode", "oMode", "pvTag", "info", "profile", "protocal", "mediaPath"]);
  await page.getByRole("combobox", { name: "operator" }).fill("TIMESEEK");
  await expect(page.getByRole("textbox", { name: "seek_time" })).toBeVisible();
  expect(await labels()).toEqual(["handle", "operator", "seek_time"]);

  await page.getByRole("textbox", { name: "handle" }).fill("7");
  await page.getByRole("textbox", { name: "seek_time" }).fill("90");
  expect(JSON.parse(await sample(page).innerText()).params).toEqual({
    uri,
    parameter: { REQUEST: "SET", handle: 7, operator: "TIMESEEK", seek_time: 90 },
  });
  // A text typed for another operator is not sent.
  await page.getByRole("combobox", { name: "operator" }).fill("play");
  expect(await labels()).toEqual(["handle", "operator"]);
  expect(JSON.parse(await sample(page).innerText()).params.parameter).toEqual({ REQUEST: "SET", handle: 7, operator: "play" });
});

test("a number offers its named values, and the response shows the meaning", async ({ host, open }) => {
  await host.write(muteUri, 1);
  const page = await open(`/#${muteUri}`);
  await expect(page.getByText("Whether the sound is muted.")).toBeVisible();
  await page.getByRole("form").getByRole("button", { name: "Get", exact: true }).click();
  await expect(member(page, "VALUE")).toContainText("muted");
  await choose(page, "Set");
  const field = page.getByRole("combobox", { name: "VALUE" });
  const offered = await field.evaluate((input: HTMLInputElement) => [...input.list!.options].map(({ value }) => value));
  expect(offered).toEqual(["0", "1"]);
});

test("a field refuses what the set does not receive as it is", async ({ open }) => {
  const page = await open(`/#${volumeUri}`);
  await choose(page, "Set");
  const field = page.getByRole("textbox", { name: "VALUE" });
  const send = page.getByRole("form").getByRole("button", { name: "Set", exact: true });
  await expect(send).toBeDisabled();
  for (const wrong of ["abc", "1.5", "32768", "-32769"]) {
    await field.fill(wrong);
    await expect(field).toHaveAttribute("aria-invalid", "true");
    await expect(send).toBeDisabled();
  }
  await field.fill("32767");
  await expect(send).toBeEnabled();
  await field.fill("0x10");
  await expect(send).toBeEnabled();
  expect(await sample(page).innerText()).toContain('"VALUE": 16');
});

test("a form marks the members that the request needs", async ({ open }) => {
  const page = await open("/#/tv/config/value_number");
  await choose(page, "Set");
  const field = (name: string) => page.getByRole("form").getByRole("textbox", { name, exact: true });
  await expect(field("cfgId")).toHaveAccessibleDescription(/^needed without cfgItem · /);
  await expect(field("cfgItem")).toHaveAccessibleDescription(/^needed without cfgId · /);
  await expect(field("valueInt")).toHaveAccessibleDescription(/^needed · /);
  await expect(field("valueString")).toHaveAccessibleDescription(/^text/);
  await field("cfgId").fill("g_video__brightness");
  await expect(field("cfgItem")).toHaveAccessibleDescription(/^numeric/);
});

test("a refused set shows the reason", async ({ open }) => {
  const page = await open(`/#${volumeUri}`);
  await choose(page, "Set");
  await page.getByRole("textbox", { name: "VALUE" }).fill("101");
  await page.getByRole("form").getByRole("button", { name: "Set", exact: true }).click();
  await expect(response(page)).toContainText("ret -1");
  await expect(response(page)).toContainText("101 is not within 0 to 100");
  const calls = page.getByRole("list", { name: "Platform calls of this request" }).getByRole("listitem");
  await expect(calls).toContainText(["a_vextvapi_volctrl_setVolume(volume: 101) → -1"]);
});

test("an action that nothing serves is not offered", async ({ open }) => {
  const page = await open("/#/tv/cast/volume/volume_increase");
  await expect(page.getByText("Not served.")).toBeVisible();
  await expect(page.getByRole("form")).toHaveCount(0);
});

test("the copied curl command can be run", async ({ host, open }) => {
  await host.write(volumeUri, 12);
  const page = await open(`/#${volumeUri}`);
  await page.getByRole("button", { name: "curl" }).click();
  const get = await run("sh", ["-c", await copied(page)]);
  expect(JSON.parse(get.stdout)).toMatchObject({ URI: volumeUri, STATUS: 0, ITEMS: [{ VALUE: 12 }] });

  await choose(page, "Set");
  await page.getByRole("textbox", { name: "VALUE" }).fill("77");
  const set = await run("sh", ["-c", await copied(page)]);
  expect(JSON.parse(set.stdout)).toEqual({ ret: 0 });
  expect(await host.read(volumeUri)).toBe(77);
  await expect(slider(page)).toHaveValue("77");
});

test("the copied JavaScript can be run", async ({ host, open }) => {
  const page = await open(`/#${volumeUri}`);
  await page.getByRole("button", { name: "JavaScript" }).click();
  await choose(page, "Set");
  await page.getByRole("textbox", { name: "VALUE" }).fill("81");
  const logged = page.waitForEvent("console");
  await page.evaluate(`(async () => { ${await copied(page)} })()`);
  expect(await (await logged).args()[0]!.jsonValue()).toMatchObject({ id: 1, result: { ret: 0 } });
  expect(await host.read(volumeUri)).toBe(81);

  await page.goto(`${host.origin}/#${volumeNotifyUri}`);
  await expect(sample(page)).toContainText("new WebSocket");
  const code = await copied(page);
  const subscribed = page.waitForEvent("console");
  await page.evaluate(`{ ${code} }`);
  expect(await (await subscribed).args()[0]!.jsonValue()).toMatchObject({ id: 1, result: {} });
  const notified = page.waitForEvent("console");
  await host.write(volumeUri, 33);
  expect(await (await notified).args()[0]!.jsonValue()).toMatchObject({
    method: "notify",
    params: { uri: volumeNotifyUri, notification: { REQUEST: "NOTIFY", ITEMS: [{ volValue: 33 }] } },
  });
});

test("a form has each member of its URI once, and arrays are numbers separated by commas", async ({ host, open }) => {
  const page = await open("/#/tv/eventinfo/channel_event_num_by_filter");
  const form = page.getByRole("form");
  const parameter = async () => JSON.parse(await sample(page).innerText()).params.parameter;
  const field = (name: string) => form.getByRole("textbox", { name, exact: true });

  await expect(field("CH_ID")).toHaveCount(1);
  await expect(field("WINDOW_ID")).toHaveCount(0);
  await field("CATEGORY_NUM").fill("3");
  await field("CATEGORY").fill("1, 0x20,255");
  expect(await parameter()).toEqual({ REQUEST: "QUERY", CATEGORY_NUM: 3, CATEGORY: [1, 32, 255] });
  await field("CATEGORY").fill("1,,2");
  await expect(field("CATEGORY")).toHaveAttribute("aria-invalid", "true");

  await page.goto(`${host.origin}/#/tv/eventinfo/event_information`);
  await expect(field("CH_ID")).toHaveCount(1);
  await expect(field("CATEGORY")).toHaveCount(0);
});

test("a form holds nested fields and 64-bit numbers, and leaves empty ones out", async ({ open }) => {
  const uri = "/tv/menu/common_setting/convert_utc_to_local_time";
  const page = await open(`/#${uri}`);
  const parameter = async () => JSON.parse(await sample(page).innerText()).params.parameter;
  const field = (name: string) => page.getByRole("textbox", { name: new RegExp(`^${name}`) });

  await expect(field("VALUE")).toBeVisible();
  expect(await parameter()).toBeUndefined();
  await field("VALUE").fill("1900000000");
  expect(await parameter()).toEqual({ REQUEST: "QUERY", VALUE: 1900000000 });
  // This number is one more than a double holds exactly, so it is sent as a text.
  await field("VALUE").fill("9007199254740993");
  expect(await parameter()).toEqual({ REQUEST: "QUERY", VALUE: "9007199254740993" });
  await field("VALUE").fill("");
  await page.getByRole("group", { name: "DTG" }).getByRole("textbox", { name: "YEAR" }).fill("2026");
  expect(await parameter()).toEqual({ REQUEST: "QUERY", DTG: { YEAR: 2026 } });
  await field("MONTH").fill("256");
  await expect(field("MONTH")).toHaveAttribute("aria-invalid", "true");
  await field("MONTH").fill("3");
  expect(await parameter()).toEqual({ REQUEST: "QUERY", DTG: { YEAR: 2026, MONTH: 3 } });

  await page.getByRole("form").getByRole("button", { name: "Get", exact: true }).click();
  await expect(response(page)).toContainText("ret 0");
});
