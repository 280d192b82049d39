import type { Locator, Page } from "@playwright/test";
import { connection, expect, languageMenu as menu, test } from "./fixtures";

// The name of the tabs changes with the language.
const tab = (page: Page, name: string): Locator => page.locator("nav.tabs").getByRole("button", { name });

test.describe("the menu's language", () => {
  test.use({ allowedErrors: [/WebSocket connection to .* failed/] });

  test("is also the language of the page, and survives a power cut", async ({ host, open }) => {
    const page = await open("/#/tv/cast/volume/volume");
    const other = await open();
    await expect(menu(page)).toHaveValue("eng");
    await expect(page.locator("html")).toHaveAttribute("lang", "en");
    await page.getByRole("combobox", { name: "Menu language" }).selectOption({ label: "Deutsch" });

    await expect(tab(page, "Konfiguration")).toBeVisible();
    await expect(tab(page, "Fernbedienung")).toBeVisible();
    await expect(page.getByRole("heading", { name: "Antwort" })).toBeVisible();
    await expect(page.getByRole("slider", { name: "Lautstärke" })).toBeVisible();
    await expect(connection(page)).toHaveText("Verbunden");
    await expect(page.locator("html")).toHaveAttribute("lang", "de");
    const live = page.getByRole("region", { name: "Live", exact: true });
    await expect(live.getByText(/^Abonnements \d+ \/ \d+$/)).toBeVisible();
    await expect(live.getByText(/^\d+ empfangen$/)).toBeVisible();
    const rows = page.getByRole("list", { name: "Benachrichtigungen", exact: true }).locator("> li:not(.empty)");
    await expect(rows.first()).toContainText("config_update");
    await expect(rows.first()).toContainText('ARG2 "g_gui_lang__gui_language"');
    // The other page has received the change.
    await expect(connection(other)).toHaveText("Verbunden");
    await expect(menu(other)).toHaveValue("deu");

    await host.kill();
    await expect(connection(page)).toContainText("Getrennt");
    await expect(connection(page).getByRole("button")).toHaveText("Erneut versuchen");
    await host.start();
    await expect(connection(page)).toHaveText("Verbunden");
    await expect(menu(page)).toHaveValue("deu");
    await page.reload();
    await expect(tab(page, "Konfiguration")).toBeVisible();
    await expect(menu(page)).toHaveValue("deu");
    const { stdout } = await host.dtvctl("get", "/tv/menu/common_setting/gui_language");
    expect(stdout).toContain("deu");
  });
});

test("a change at the television reaches the page without a reload", async ({ host, open }) => {
  const page = await open("/#configuration");
  await expect(page.getByRole("heading", { name: "Configuration" })).toBeVisible();
  expect((await host.dtvctl("tv", "config", "g_gui_lang__gui_language", "tur")).code).toBe(0);
  await expect(page.getByRole("heading", { name: "Yapılandırma" })).toBeVisible();
  await expect(menu(page)).toHaveValue("tur");
  await expect(page.getByText(/^\d+ değer$/)).toBeVisible();
  await expect(page.getByRole("checkbox", { name: "Varsayılandan farklı" })).toBeVisible();
  await expect(page.getByRole("region", { name: "Canlı" })).toBeVisible();

  // For a language without a library the plugin uses the English one, and the menu shows the code.
  expect((await host.dtvctl("tv", "config", "g_gui_lang__gui_language", "nld")).code).toBe(0);
  await expect(page.getByRole("heading", { name: "Configuration" })).toBeVisible();
  await expect(menu(page)).toHaveValue("nld");
});

test("the texts of panels that are loaded later are read, too", async ({ host, open }) => {
  expect((await host.dtvctl("tv", "config", "g_gui_lang__gui_language", "deu")).code).toBe(0);
  let sent = "";
  const page = await open("/", {
    prepare: async (page) => {
      page.on("websocket", (socket) => socket.on("framesent", ({ payload }) => (sent += String(payload))));
    },
  });
  await expect(connection(page)).toHaveText("Verbunden");
  // The player's, which no view names.
  expect(sent).toContain("IDS_SECONDS_BACK");
});

test("a text that the television lacks is shown in English", async ({ host, open }) => {
  expect((await host.dtvctl("tv", "config", "g_gui_lang__gui_language", "fra")).code).toBe(0);
  const page = await open();
  await expect(connection(page)).toHaveText("Connecté");
  await expect(tab(page, "Télécommande")).toBeVisible();
  await expect(page.getByText(/^\d+ URI$/)).toBeVisible();
  // Makes one text empty, like the text of an unknown id.
  await page.routeWebSocket("**/jsonrpc", (socket) => {
    const server = socket.connectToServer();
    server.onMessage((text) => {
      const message = JSON.parse(String(text));
      const item = message.result?.response?.ITEMS?.[0];
      if (item?.langId === "IDS_CONNECTED") item.langString = "";
      socket.send(JSON.stringify(message));
    });
  });
  await page.reload();
  await expect(tab(page, "Télécommande")).toBeVisible();
  await expect(connection(page)).toHaveText("Connected");
  await expect(page.locator("html")).toHaveAttribute("lang", "fr");
});

test.describe("a television without texts and without a command device", () => {
  test.use({ hostArgs: ["--no-private-paths"] });

  test("has a page in English, and its keys report why they fail", async ({ host, open }) => {
    const page = await open("/#remote");
    await expect(menu(page)).toHaveValue("eng");
    expect((await host.dtvctl("tv", "config", "g_gui_lang__gui_language", "deu")).code).toBe(0);
    // The page sets its menu and its language together, so the language is final once the menu shows the change.
    await expect(menu(page)).toHaveValue("deu");
    expect(await page.locator("html").getAttribute("lang")).toBe("en");

    await page.getByRole("combobox", { name: "Menu language" }).selectOption("fra");
    const told = () => host.dtvctl("get", "/tv/menu/common_setting/gui_language");
    await expect.poll(async () => (await told()).stdout).toContain("fra");
    const remote = page.getByRole("main", { name: "Remote control" });
    await remote.getByRole("button", { name: "GUIDE" }).click();
    await expect(remote.getByRole("status")).toHaveText(
      "GUIDE the platform refused, or nothing serves the request: the set's command device cannot be opened.",
    );
  });
});
