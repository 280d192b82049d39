import { mkdir } from "node:fs/promises";
import { join } from "node:path";
import { test } from "./fixtures";
const views = ["uris","request","set","channels","guide","recordings","media","home-network","scan","configuration","capture","screen","remote","live"];
for (const [w,h] of [[1280,800],[390,740]] as const) for (const scheme of ["light","dark"] as const) {
  test(`look ${w} ${scheme}`, async ({ host, open }) => {
    await mkdir(join(host.files, "holiday")); await mkdir(join(host.files, "music"));
    await host.dtvctl("tv","fault","a_vextvapi_volctrl_setVolume","--delay","50");
    if (scheme === "dark") { await host.dtvctl("tv","network","lose"); await host.dtvctl("tv","stick","insert",join(host.files,"holiday")); await host.dtvctl("tv","clock","sleep","1000"); }
    const page = await open("/");
    await page.emulateMedia({ colorScheme: scheme });
    await page.setViewportSize({ width: w, height: h });
    for (const v of views) {
      const tab = page.locator(`.tabs [data-tab="${v}"]`);
      if (await tab.isVisible()) await tab.click(); else if (v !== "uris" && v !== "live") continue;
      await page.waitForTimeout(700);
      await page.screenshot({ path: `/tmp/pf/${w}-${scheme}-${v}.png` });
    }
    await page.goto(host.origin + "/#/tv/cast/volume/volume");
    await page.getByRole("button", { name: "Set", exact: true }).first().click();
    await page.locator("#field-VALUE").fill("200");
    await page.locator("form").getByRole("button", { name: "Set", exact: true }).click();
    await page.waitForTimeout(700);
    await page.screenshot({ path: `/tmp/pf/${w}-${scheme}-zset.png` });
  });
}
