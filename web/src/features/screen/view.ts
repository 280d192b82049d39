import type { View } from "../../app/view";
import { ScreenIcon } from "../../ui/icons";
import { ScreenPanel } from "./screen-panel";
import { label } from "./words";

export const view: View = {
  id: "screen",
  title: () => label("IDS_PICTURE"),
  order: 35,
  icon: ScreenIcon,
  component: ScreenPanel,
};
