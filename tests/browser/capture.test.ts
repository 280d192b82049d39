import { execFile } from "node:child_process";
import { mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { readFile } from "node:fs/promises";
import { tmpdir } from "node:os";
import { join } from "node:path";
import type { Page } from "@playwright/test";
import { expect, muteButton, test, tooWide } from "./fixtures";
import { bin } from "./host";

/** Records and faults on the page. */

const badge = (page: Page) => page.locator(".capture-badge");
const fact = (page: Page, name: string) =>
  page.locator(".capture-facts > div").filter({ has: page.getByText(name, { exact: true }) }).locator("dd");

function conformance(file: string): Promise<{ code: number; stdout: string }> {
  return new Promise((resolve) => {
    const child = execFile(join(bin, "conformance"), [file], (_, stdout) =>
      resolve({ code: child.exitCode ?? -1, stdout }),
    );
  });
}

async function save(page: Page, button: string): Promise<string> {
  const [download] = await Promise.all([page.waitForEvent("download"), page.getByRole("button", { name: button }).click()]);
  return download.path();
}

test("a record made on the page is saved as a case that passes", async ({ host, open }) => {
  const page = await open("/#capture");
  await expect(badge(page)).toHaveCount(0);
  await expect(page.getByRole("button", { name: "Download record" })).toHaveCount(0);
  await page.getByRole("button", { name: "Start recording" }).click();
  await expect(badge(page)).toHaveText("Recording");
  await expect(fact(page, "Requests")).toHaveText("0");

  await muteButton(page).click();
  await expect(fact(page, "Notifications")).not.toHaveText("0");
  await host.write("/tv/cast/volume/volume", 33);
  await expect(fact(page, "Requests")).not.toHaveText("0");
  await page.getByRole("button", { name: "Stop recording" }).click();
  await expect(badge(page)).toHaveCount(0);

  const record = await readFile(await save(page, "Download record"), "utf8");
  const lines = record.trimEnd().split("\n").map((line) => JSON.parse(line) as Record<string, unknown>);
  expect(lines.some((line) => line["set"] === "/tv/cast/volume/volume")).toBe(true);
  expect(lines.some((line) => line["fetch"] === "/tv/ws/notify/volume_ctrl")).toBe(true);
  const { code, stdout } = await conformance(await save(page, "Download as conformance case"));
  expect(stdout).toContain("1 passed, 0 failed");
  expect(code).toBe(0);
});

test("what another client has begun is in the header of a page that is opened later", async ({ host, open }) => {
  await host.dtvctl("tv", "capture", "start");
  await host.dtvctl("tv", "fault", "a_vextvapi_volctrl_getVolume", "--delay", "20");
  const page = await open();
  await expect(badge(page)).toHaveText("RecordingFaults 1");
  await badge(page).click();
  await expect(page).toHaveURL(/#capture$/);
  await expect(page.getByRole("button", { name: "Stop recording" })).toBeVisible();
});

test("the header follows what another client begins and ends, while the page is visible", async ({ host, open }) => {
  let polls = 0;
  const page = await open("/", {
    prepare: async (page) => {
      page.on("websocket", (socket) =>
        socket.on("framesent", ({ payload }) => {
          if (String(payload).includes('"capture"')) polls++;
        }),
      );
    },
  });
  await expect(badge(page)).toHaveCount(0);
  await host.dtvctl("tv", "capture", "start");
  await expect(badge(page)).toHaveText("Recording");
  await host.dtvctl("tv", "capture", "stop");
  await host.dtvctl("tv", "fault", "a_vextvapi_volctrl_getVolume", "--delay", "1");
  await expect(badge(page)).toHaveText("Faults 1");

  // A hidden page asks nothing. One poll may be on its way.
  const show = (state: string) =>
    page.evaluate((value) => Object.defineProperty(document, "visibilityState", { value, configurable: true }), state);
  await show("hidden");
  const before = polls;
  await page.waitForTimeout(8000);
  expect(polls).toBeLessThanOrEqual(before + 1);
  await show("visible");
  await host.dtvctl("tv", "fault", "--clear");
  await expect(badge(page)).toHaveCount(0);
});

test("faults are found by name or argument, set, listed and removed", async ({ host, open }) => {
  const page = await open("/#capture");
  const list = page.getByRole("list", { name: "Functions of the TV API" });
  await page.getByRole("searchbox").fill("pv_arg1 VOLCTRL");
  await expect(list.getByRole("button")).toHaveCount(1);
  await expect(list).toContainText("Callback(callback_type, pv_tag, pv_arg1, pv_arg2, pv_arg3, pv_arg4)");
  await list.getByRole("button").click();
  const form = page.getByRole("form", { name: "a_vextvapi_volctrl_reg_callback" });
  await expect(form.getByRole("button", { name: "Set fault" })).toBeDisabled();
  await form.getByLabel("Callback comes so many times").fill("3");
  await form.getByRole("button", { name: "Set fault" }).click();
  const active = page.locator(".fault-list li");
  await expect(active).toHaveText("a_vextvapi_volctrl_reg_callbackCallback comes so many times: 3");
  await expect(badge(page)).toHaveText("Faults 1");

  await page.getByRole("searchbox").fill("volctrl_setvolume");
  await list.getByRole("button").click();
  const setVolume = page.getByRole("form", { name: "a_vextvapi_volctrl_setVolume" });
  await expect(setVolume).toContainText("This function registers no callback");
  await setVolume.getByLabel("Fails with code").fill("-5");
  await setVolume.getByLabel("Delay in ms").fill("1");
  await setVolume.getByRole("button", { name: "Set fault" }).click();
  await expect(active).toHaveCount(2);
  const refused = await host.dtvctl("set", "/tv/cast/volume/volume", "40");
  expect(refused.code).toBe(1);

  await page.getByRole("button", { name: "Remove: a_vextvapi_volctrl_reg_callback" }).click();
  await expect(active).toHaveCount(1);
  await page.getByRole("button", { name: "Remove all" }).click();
  await expect(page.getByText("No faults are set")).toBeVisible();
  await expect(badge(page)).toHaveCount(0);
  expect((await host.dtvctl("set", "/tv/cast/volume/volume", "40")).code).toBe(0);
});

test.describe("with a record in place of a television", () => {
  const folder = mkdtempSync(join(tmpdir(), "dtv-page-record-"));
  const file = join(folder, "record.jsonl");
  const lines = [
    { record: 1 },
    { seq: 2, thread: 1, call: "a_vextvapi_volctrl_getVolume", in: {}, ret: 42 },
    { seq: 1, thread: 1, get: "/tv/cast/volume/volume", ret: 0, response: "" },
  ];
  writeFileSync(file, lines.map((line) => JSON.stringify(line) + "\n").join(""));
  test.afterAll(() => rmSync(folder, { recursive: true }));
  test.use({ hostArgs: ["--replay", file] });

  test("the page says so, and lists what the record does not have", async ({ open }) => {
    const page = await open("/#capture");
    await expect(badge(page)).toHaveText("Replay");
    await expect(page.locator(".volume input").first()).toHaveValue("42");
    const section = page.getByRole("region", { name: "A record answers in place of a television" });
    await expect(section).toContainText(file);
    await expect(section.locator("li").filter({ hasText: "is not in the record" }).first()).toBeVisible();
    expect(await tooWide(page)).toEqual([]);
    await page.screenshot({ path: test.info().outputPath("replay.png") });
  });
});

for (const width of [320, 768, 1280]) {
  test(`records and faults fit a screen of ${width} pixels`, async ({ host, open }) => {
    await host.dtvctl("tv", "capture", "start");
    await host.dtvctl("tv", "fault", "a_vextvapi_volctrl_reg_callback", "--fail", "-3", "--delay", "20", "--drop-callback");
    const page = await open("/#capture");
    await page.setViewportSize({ width, height: 800 });
    await page.getByRole("searchbox").fill("pv_arg1 VOLCTRL");
    await page.getByRole("list", { name: "Functions of the TV API" }).getByRole("button").click();
    await expect(badge(page)).toBeVisible();
    expect(await tooWide(page)).toEqual([]);
    await page.screenshot({ path: test.info().outputPath(`capture-${width}.png`) });
  });
}
