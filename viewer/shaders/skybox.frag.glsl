#version 330 core
uniform samplerCube uTexture;
in vec3 vTexCoord;
out vec4 fragColor;

void main()
{
    fragColor = texture(uTexture, vTexCoord);
}
