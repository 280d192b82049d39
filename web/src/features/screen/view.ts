import { lazy } from "../../app/lazy";
import type { View } from "../../app/view";
import { ScreenIcon } from "../../ui/icons";
import { label } from "./words";

export const view: View = {
  id: "screen",
  title: () => label("IDS_PICTURE"),
  order: 35,
  icon: ScreenIcon,
  component: lazy(async () => (await import("./screen-panel")).ScreenPanel),
};
