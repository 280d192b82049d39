import type { Locator, Page } from "@playwright/test";
import { expect, slider, test } from "./fixtures";
import { muteUri, volumeUri } from "./host";

/** Where the answer is, what it says, and the requests that the page keeps. */

const response = (page: Page) => page.getByRole("region", { name: "Response" });
const form = (page: Page) => page.getByRole("form");
const submit = (page: Page, name: "Get" | "Set") => form(page).getByRole("button", { name, exact: true });
const choose = (page: Page, name: string) =>
  page.getByRole("group", { name: "Kind of request" }).getByRole("button", { name }).click();
const mode = (page: Page, name: "Form" | "JSON") =>
  page.getByRole("group", { name: "Parameter as" }).getByRole("button", { name }).click();
const editor = (page: Page) => page.getByRole("textbox", { name: "Parameter as JSON" });
const sample = async (page: Page) => JSON.parse(await page.getByLabel("The request that will be sent").innerText()).params;
const history = (page: Page) => page.getByRole("list", { name: "Recent requests" }).getByRole("listitem");
const boxOf = async (locator: Locator) => (await locator.boundingBox())!;

for (const [width, height] of [
  [1280, 800],
  [1024, 768],
] as const) {
  test.describe(`at ${width}x${height}`, () => {
    test.use({ viewport: { width, height } });

    test("the answer is beside the request, and beside a long form too", async ({ host, open }) => {
      const page = await open(`/#${volumeUri}`);
      await submit(page, "Get").click();
      await expect(response(page)).toContainText("ret 0");
      const card = page.getByRole("region", { name: "Make a request" });
      const [request, answer] = [await boxOf(card), await boxOf(response(page))];
      expect(answer.x).toBeGreaterThanOrEqual(request.x + request.width);
      expect(Math.abs(answer.y - request.y)).toBeLessThan(2);
      await expect(response(page).getByRole("list", { name: "Platform calls of this request" })).toBeInViewport();

      await page.goto(`${host.origin}/#/tv/eventinfo/channel_event_num_by_filter`);
      await submit(page, "Get").scrollIntoViewIfNeeded();
      await submit(page, "Get").click();
      await expect(response(page).locator(".verdict")).toBeInViewport();
    });
  });
}

test.describe("on a phone", () => {
  test.use({ viewport: { width: 390, height: 740 } });

  test("the view scrolls to the answer", async ({ open }) => {
    const page = await open(`/#${volumeUri}`);
    await expect(response(page)).not.toBeInViewport({ ratio: 0.5 });
    await submit(page, "Get").click();
    await expect(response(page).locator(".verdict")).toBeInViewport();
  });
});

test("the parameter can be edited as JSON and as a form, and keeps what was typed", async ({ host, open }) => {
  const page = await open(`/#${volumeUri}`);
  await choose(page, "Set");
  await page.getByRole("textbox", { name: "VALUE" }).fill("37");
  await mode(page, "JSON");
  expect(JSON.parse(await editor(page).inputValue())).toEqual({ REQUEST: "MODIFY", VALUE: 37 });

  // What the form can hold goes there and back.
  const typed = '{\n  "REQUEST": "MODIFY",\n\n  "VALUE": 41\n}';
  await editor(page).fill(typed);
  await mode(page, "Form");
  await expect(page.getByRole("textbox", { name: "VALUE" })).toHaveValue("41");
  await mode(page, "JSON");
  await expect(editor(page)).toHaveValue(typed);
  await mode(page, "Form");
  await page.getByRole("textbox", { name: "VALUE" }).fill("42");
  await mode(page, "JSON");
  expect(JSON.parse(await editor(page).inputValue())).toEqual({ REQUEST: "MODIFY", VALUE: 42 });

  // What it cannot hold is named, and kept.
  const odd = '{"REQUEST": "MODIFY", "VALUE": "43", "extra": [true]}';
  await editor(page).fill(odd);
  await mode(page, "Form");
  await expect(form(page)).toContainText('"extra": [true]');
  await mode(page, "JSON");
  await expect(editor(page)).toHaveValue(odd);
  await editor(page).fill('{"REQUEST": "MODIFY", "VALUE": 44}');
  await submit(page, "Set").click();
  await expect(response(page)).toContainText("ret 0");
  expect(await host.read(volumeUri)).toBe(44);
});

test("a fault in the JSON is shown with its line and column, and cannot be sent", async ({ open }) => {
  const page = await open(`/#${volumeUri}`);
  await choose(page, "Set");
  await mode(page, "JSON");
  for (const [text, place] of [
    ['{\n  "REQUEST": "MODIFY",\n  "VALUE": }', "Line 3, column 12:"],
    ['{"REQUEST": "MODIFY" "VALUE": 1}', "Line 1, column 22:"],
    ['{"a": 1,}', "Line 1, column 9:"],
    ['{"a": 01}', "Line 1, column 8:"],
    ['{"a": "\\x"}', "Line 1, column 8:"],
    ['{"a": "b', "Line 1, column 9:"],
    ['{"a": [1, 2}', "Line 1, column 12:"],
    ['{"a": 1}\n}', "Line 2, column 1:"],
    ["{'a': 1}", "Line 1, column 2:"],
    ["[1]", "Line 1, column 1:"],
    ["", "Line 1, column 1:"],
  ] as const) {
    await editor(page).fill(text);
    await expect(form(page), text).toContainText(place);
    await expect(editor(page)).toHaveAttribute("aria-invalid", "true");
    await expect(submit(page, "Set")).toBeDisabled();
  }
  // The text survives a look at the form.
  await editor(page).fill('{"VALUE": 5,}');
  await mode(page, "Form");
  await expect(form(page)).toContainText("The JSON text has a fault.");
  await mode(page, "JSON");
  await expect(editor(page)).toHaveValue('{"VALUE": 5,}');
});

test("the latest 50 requests are kept in the browser and can be sent again", async ({ host, open }) => {
  const page = await open(`/#${volumeUri}`);
  await choose(page, "Set");
  for (const value of ["11", "12"]) {
    await page.getByRole("textbox", { name: "VALUE" }).fill(value);
    await submit(page, "Set").click();
    await expect(slider(page)).toHaveValue(value);
  }
  await page.goto(`${host.origin}/#${muteUri}`);
  await submit(page, "Get").click();
  await expect(response(page)).toContainText("ret 0");
  await page.reload();

  await page.getByText("Recent requests").click();
  await expect(history(page)).toHaveCount(3);
  await expect(history(page).first()).toContainText(`get ${muteUri}`);
  const older = history(page).filter({ hasText: '"VALUE":11' });
  await older.getByRole("button", { name: "Send again" }).click();
  await expect(page.getByRole("heading", { level: 1 })).toHaveText(volumeUri);
  await expect(response(page)).toContainText("ret 0");
  await expect(slider(page)).toHaveValue("11");
  expect(await sample(page)).toEqual({ uri: volumeUri, parameter: { REQUEST: "MODIFY", VALUE: 11 } });

  // The same request is kept once.
  await page.getByText("Recent requests").click();
  await expect(history(page)).toHaveCount(3);
  await history(page).filter({ hasText: '"VALUE":12' }).getByRole("button").first().click();
  await expect(page.getByRole("textbox", { name: "VALUE" })).toHaveValue("12");
  expect(await host.read(volumeUri)).toBe(11);

  await page.evaluate((uri) => {
    const many = Array.from({ length: 500 }, (_, index) => ({ method: "get", uri, parameter: { index } }));
    localStorage.setItem("dtv.requests", JSON.stringify([{ method: "drop" }, 7, null, ...many]));
  }, volumeUri);
  await page.reload();
  await submit(page, "Get").click();
  await page.getByText("Recent requests").click();
  await expect(history(page)).toHaveCount(50);
  expect(await page.evaluate(() => JSON.parse(localStorage.getItem("dtv.requests")!).length)).toBe(50);
});

test("a get that asked nothing of the set is not shown as done", async ({ host, open }) => {
  const page = await open("/#/tv/channelinfo/change_input_source");
  const badge = response(page).locator(".badge").first();
  // Its get is answered from the plugin's own memory.
  await submit(page, "Get").click();
  await expect(response(page)).toContainText("the set was not asked:");
  await expect(badge).toHaveClass(/warn/);
  await page.goto(`${host.origin}/#${volumeUri}`);
  await submit(page, "Get").click();
  await expect(badge).toHaveClass(/good/);
});

test("an answer shows what the set silently changed; a strict request is refused for it", async ({ host, open }) => {
  await host.write(volumeUri, 20);
  const page = await open(`/#${volumeUri}`);
  const warnings = response(page).getByRole("list", { name: "Warnings" }).getByRole("listitem");
  await choose(page, "Set");
  await mode(page, "JSON");
  await editor(page).fill('{"REQUEST": "MODIFY", "VALUE": 22.7, "oops": 1}');
  await submit(page, "Set").click();
  await expect(response(page)).toContainText("ret 0");
  await expect(warnings).toHaveCount(2);
  await expect(warnings.first()).toContainText("22.7");
  await expect(warnings.last()).toContainText("oops");
  expect(await host.read(volumeUri)).toBe(22);

  await host.write(volumeUri, 20);
  await page.getByRole("checkbox", { name: "Strict" }).check();
  await submit(page, "Set").click();
  await expect(response(page)).toContainText("error -32602");
  await expect(warnings).toHaveCount(2);
  expect(await host.read(volumeUri)).toBe(20);

  // The choice is kept in the browser.
  await page.reload();
  await expect(page.getByRole("checkbox", { name: "Strict" })).toBeChecked();
});

test("the log of a request is below its platform calls", async ({ open }) => {
  const page = await open(`/#${volumeUri}`);
  await choose(page, "Set");
  await page.getByRole("textbox", { name: "VALUE" }).fill("101");
  await submit(page, "Set").click();
  const log = page.getByLabel("Log of this request");
  await expect(response(page)).toContainText("101 is not within 0 to 100");
  await expect(log).toBeHidden();
  await response(page).getByText("Log", { exact: false }).last().click();
  await expect(log).toContainText("a_vextvapi_volctrl_setVolume: 101 is not within 0 to 100");
});
