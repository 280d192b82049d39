import type { ComponentChildren } from "preact";

interface IconButtonProps {
  label: string;
  onClick: () => void;
  /** For a button that stays pressed. */
  pressed?: boolean;
  disabled?: boolean;
  tabIndex?: 0 | -1;
  /** The icon. */
  children: ComponentChildren;
}

/** A button with an icon; its label is its name and tooltip. */
export const IconButton = ({ label, onClick, pressed, disabled, tabIndex, children }: IconButtonProps) => (
  <button
    type="button"
    class="icon-button"
    aria-label={label}
    aria-pressed={pressed}
    title={label}
    disabled={disabled}
    tabIndex={tabIndex}
    onClick={onClick}
  >
    {children}
  </button>
);
